#include "platform/pulse/PulseConnection.h"

#include <algorithm>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/proplist.h>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

constexpr char applicationName[] = "Quenlor Helper";
constexpr char applicationID[] = "com.quenlor.helper.audio";

// Several times what a busy machine delays a thread by, and less than any time that counts as
// silence.
constexpr auto longestRegularPause = 200ms;

}  // namespace

void PulseConnection::ContextCloser::operator()(pa_context* closing) const {
  pa_context_set_state_callback(closing, nullptr, nullptr);
  pa_context_disconnect(closing);
  pa_context_unref(closing);
}

PulseConnection::PulseConnection(const TraceSink& traceSink)
    : sink(traceSink), mainloop(pa_mainloop_new()) {
  if (mainloop == nullptr) throw PlatformError("The sound server's client could not be set up.");
  try {
    open();
  } catch (const PlatformError& error) {
    close();
    throw PlatformError(std::string("The sound server could not be reached: ") + error.what());
  }
}

PulseConnection::~PulseConnection() {
  close();
}

void PulseConnection::open() {
  ConnectionLock held(*this);
  connect();
  waitUntil([this] {
    assertLocked();
    return wasReady;
  });
}

void PulseConnection::connect() {
  const std::unique_ptr<pa_proplist, decltype(&pa_proplist_free)> properties(pa_proplist_new(),
                                                                             &pa_proplist_free);
  pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_ID, applicationID);
  pa_context* const fresh =
      pa_context_new_with_proplist(loopInterface(), applicationName, properties.get());
  if (fresh == nullptr) throw PlatformError("Out of memory.");
  serverContext.reset(fresh);
  pa_context_set_state_callback(context(), &PulseConnection::stateChanged, this);
  if (pa_context_connect(context(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
    throw PlatformError(lastError());
}

void PulseConnection::reopen() {
  try {
    connect();
  } catch (const PlatformError&) {
    // As any attempt that comes to nothing: whoever makes them makes another.
  }
}

void PulseConnection::close() {
  ConnectionLock held(*this);
  serverQuery.reset();
  serverContext.reset();
}

void PulseConnection::stateChanged(pa_context*, void* connection) {
  auto& self = *static_cast<PulseConnection*>(connection);
  self.assertLocked();
  const bool hasEnded = !self.isGood();
  if (self.isReady()) {
    self.wasReady = true;
    self.askWhoServes();
  }
  if (hasEnded && self.wasReady) {
    self.wasReady = false;
    self.trace("The sound server ended the connection: " + self.lastError());
  }
  if (self.stateListener && (hasEnded || self.isReady())) self.stateListener();
}

/// Before anything else is asked: answers come in the order of the questions.
void PulseConnection::askWhoServes() {
  isPulseAudio = false;
  constexpr auto take = [](pa_context*, const pa_server_info* info, void* connection) {
    auto& self = *static_cast<PulseConnection*>(connection);
    self.assertLocked();
    const char* const name = info != nullptr ? info->server_name : nullptr;
    self.isPulseAudio = name != nullptr && std::string_view(name) == "pulseaudio";
  };
  serverQuery.reset(pa_context_get_server_info(context(), take, this));
}

void PulseConnection::serve() {
  if (!mutex.tryLock()) return;
  assertLocked();
  isNeglected = std::chrono::steady_clock::now() - servedAt > longestRegularPause;
  while (pa_mainloop_iterate(mainloop.get(), 0, nullptr) > 0) {
  }
  servedAt = std::chrono::steady_clock::now();
  mutex.unlock();
}

void PulseConnection::waitUntil(const std::function<bool()>& done) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + timeLeft;
  bool isDone = done();
  while (!isDone && isGood() && timeLeft > 0ns) {
    serveOnce(timeLeft);
    timeLeft = std::max<std::chrono::nanoseconds>(deadline - Clock::now(), 0ns);
    isDone = done();
  }
  if (isDone) return;
  if (!isGood()) throw PlatformError(lastError());
  throw PlatformError("It did not answer in time.");
}

/// Waits until there is something to run callbacks for, and runs them.
void PulseConnection::serveOnce(std::chrono::nanoseconds longest) {
  const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(longest).count();
  if (pa_mainloop_prepare(mainloop.get(), static_cast<int>(microseconds)) < 0) return;
  if (pa_mainloop_poll(mainloop.get()) >= 0) pa_mainloop_dispatch(mainloop.get());
  servedAt = std::chrono::steady_clock::now();
}

void PulseConnection::waitFor(const Operation& operation) {
  if (operation == nullptr) throw PlatformError(lastError());
  waitUntil(
      [&operation] { return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING; });
}

std::string PulseConnection::lastError() {
  return std::string(pa_strerror(pa_context_errno(context()))) + ".";
}

}  // namespace quenlor::platform::pulse
