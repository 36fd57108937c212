#include "platform/pulse/PulseSupervisor.h"

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// A server that is started again answers within a second or two; one that was ended may not come
// back for hours.
constexpr auto shortPause = 250ms;
constexpr int shortPauses = 20;
constexpr auto longPause = 1s;

// An attempt that has no answer after this long is given up.
constexpr auto attemptTime = 5s;

}  // namespace

void PulseSupervisor::start() {
  ConnectionLock held(connection);
  failures = 0;
  timer.emplace(connection, [this] {
    connection.assertLocked();
    attempt();
  });
  devices.emplace(connection, [this](const DefaultDevices::Answer& answer) {
    connection.assertLocked();
    follow(answer);
  });
  connection.setStateListener([this] {
    connection.assertLocked();
    connectionChanged();
  });
  group.setStreamEnded([this] {
    connection.assertLocked();
    streamEnded();
  });
  if (connection.isReady())
    devices->watch();
  else
    connectionChanged();
}

void PulseSupervisor::stop() {
  ConnectionLock held(connection);
  group.setStreamEnded(nullptr);
  connection.setStateListener(nullptr);
  devices.reset();
  timer.reset();
}

void PulseSupervisor::connectionChanged() {
  if (connection.isReady()) {
    connection.trace("The sound server is back.");
    failures = 0;
    timer->stop();
    devices->watch();
  } else {
    planAttempt();
  }
}

/// Where the whole connection has ended, that is dealt with already.
void PulseSupervisor::streamEnded() {
  if (!connection.isReady()) return;
  const auto now = std::chrono::steady_clock::now();
  const bool isRepeated = now - lastEnd < longPause;
  lastEnd = now;
  if (isRepeated)
    planAttempt();
  else
    devices->look();
}

void PulseSupervisor::planAttempt() {
  timer->set(failures++ < shortPauses ? shortPause : longPause);
}

void PulseSupervisor::attempt() {
  if (connection.isReady()) {
    devices->look();
  } else {
    timer->set(attemptTime);
    connection.reopen();
  }
}

void PulseSupervisor::follow(const DefaultDevices::Answer& answer) {
  const auto& [sink, source] = answer;
  group.follow(CaptureRole::system, sink ? sink->monitorName : "", "There is no output.");
  const bool isMicrophone = source && !source->isMonitor;
  group.follow(CaptureRole::microphone, isMicrophone ? source->name : "",
               "There is no microphone.");
}

}  // namespace quenlor::platform::pulse
