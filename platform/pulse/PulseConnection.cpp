#include "platform/pulse/PulseConnection.h"

#include <algorithm>
#include <pulse/error.h>
#include <pulse/proplist.h>
#include <pulse/rtclock.h>

namespace quenlor::platform::pulse {
namespace {

constexpr char applicationName[] = "Quenlor Helper";
constexpr char applicationID[] = "com.quenlor.helper.audio";

/// Wakes the waiting thread when a time has passed. Made and destroyed under the lock.
class Alarm {
 public:
  Alarm(pa_threaded_mainloop* mainloop, pa_context* context, std::chrono::nanoseconds delay)
      : api(pa_threaded_mainloop_get_api(mainloop)) {
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(delay).count();
    const pa_usec_t when = pa_rtclock_now() + static_cast<pa_usec_t>(microseconds);
    event = pa_context_rttime_new(context, when, &Alarm::ring, mainloop);
  }
  ~Alarm() { api->time_free(event); }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

 private:
  static void ring(pa_mainloop_api*, pa_time_event*, const timeval*, void* mainloop) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(mainloop), 0);
  }

  pa_mainloop_api* api;
  pa_time_event* event;
};

}  // namespace

void PulseConnection::MainloopEnder::operator()(pa_threaded_mainloop* loop) const {
  pa_threaded_mainloop_stop(loop);
  pa_threaded_mainloop_free(loop);
}

void PulseConnection::ContextCloser::operator()(pa_context* closing) const {
  pa_context_set_state_callback(closing, nullptr, nullptr);
  pa_context_disconnect(closing);
  pa_context_unref(closing);
}

PulseConnection::PulseConnection(const TraceSink& traceSink)
    : sink(traceSink), mainloop(pa_threaded_mainloop_new()) {
  if (mainloop == nullptr) throw PlatformError("The sound server's client could not be set up.");
  pa_threaded_mainloop_set_name(mainloop.get(), "sound-server");
  try {
    open();
  } catch (const PlatformError& error) {
    close();
    const std::string message =
        std::string("The sound server could not be reached: ") + error.what();
    trace(message);
    throw PlatformError(message);
  }
}

PulseConnection::~PulseConnection() {
  close();
}

void PulseConnection::open() {
  ConnectionLock held(*this);
  connect();
  if (pa_threaded_mainloop_start(mainloop.get()) < 0)
    throw PlatformError("Its client's thread could not be started.");
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
  serverContext.reset();
}

void PulseConnection::stateChanged(pa_context*, void* connection) {
  auto& self = *static_cast<PulseConnection*>(connection);
  self.assertLocked();
  const bool hasEnded = !self.isGood();
  if (self.isReady()) self.wasReady = true;
  if (hasEnded && self.wasReady) {
    self.wasReady = false;
    self.trace("The sound server ended the connection: " + self.lastError());
  }
  if (self.stateListener && (hasEnded || self.isReady())) self.stateListener();
  self.signal();
}

void PulseConnection::waitUntil(const std::function<bool()>& done) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + timeLeft;
  const Alarm alarm(mainloop.get(), context(), timeLeft);
  bool isDone = done();
  while (!isDone && isGood() && Clock::now() < deadline) {
    pa_threaded_mainloop_wait(mainloop.get());
    isDone = done();
  }
  timeLeft = std::max(deadline - Clock::now(), Clock::duration::zero());
  if (isDone) return;
  if (!isGood()) throw PlatformError(lastError());
  throw PlatformError("It did not answer in time.");
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
