#include "platform/pulse/PulseSupervisor.h"

#include <utility>

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
  isWatching = false;
  devices.emplace(connection, [this](const DefaultDevices::Answer& answer) {
    connection.assertLocked();
    follow(answer);
  });
  group.setStreamEnded([this] {
    connection.assertLocked();
    devices->askWithin(0s);
  });
}

void PulseSupervisor::stop() {
  ConnectionLock held(connection);
  group.setStreamEnded(nullptr);
  devices.reset();
}

void PulseSupervisor::served() {
  connection.assertLocked();
  if (!devices) return;
  if (!connection.isReady()) {
    isWatching = false;
    reachForServer();
  } else if (!std::exchange(isWatching, true)) {
    if (std::exchange(attempts, 0) > 0) connection.trace("The sound server is back.");
    devices->watch();
  } else {
    devices->served();
  }
}

void PulseSupervisor::reachForServer() {
  const auto pause = attempts < shortPauses ? shortPause : longPause;
  const auto now = Clock::now();
  if (now - attemptedAt < (connection.isGood() ? attemptTime : pause)) return;
  attemptedAt = now;
  ++attempts;
  connection.reopen();
}

void PulseSupervisor::follow(const DefaultDevices::Answer& answer) {
  const auto& [sink, source] = answer;
  group.follow(CaptureRole::system, sink ? sink->monitorName : "",
               sink ? sink->description : "There is no output.");
  const bool isMicrophone = source && !source->isMonitor;
  group.follow(CaptureRole::microphone, isMicrophone ? source->name : "",
               isMicrophone ? source->description : "There is no microphone.");
}

}  // namespace quenlor::platform::pulse
