#include "platform/pulse/LoopTimer.h"

#include <pulse/rtclock.h>
#include <pulse/timeval.h>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

pa_time_event* makeEvent(PulseConnection& connection, pa_time_event_cb_t callback, void* timer) {
  connection.assertLocked();
  return pa_context_rttime_new(connection.context(), PA_USEC_INVALID, callback, timer);
}

}  // namespace

LoopTimer::LoopTimer(PulseConnection& timerConnection, std::function<void()> timerHandler)
    : connection(timerConnection),
      handler(std::move(timerHandler)),
      event(makeEvent(connection, &LoopTimer::expired, this)) {
  if (event == nullptr) throw PlatformError("Out of memory.");
}

LoopTimer::~LoopTimer() {
  connection.loopInterface()->time_free(event);
}

void LoopTimer::set(std::chrono::microseconds delay) {
  connection.assertLocked();
  const pa_usec_t time = pa_rtclock_now() + static_cast<pa_usec_t>(delay.count());
  pa_context_rttime_restart(connection.context(), event, time);
}

void LoopTimer::stop() {
  connection.assertLocked();
  pa_context_rttime_restart(connection.context(), event, PA_USEC_INVALID);
}

void LoopTimer::expired(pa_mainloop_api*, pa_time_event*, const timeval*, void* timer) {
  static_cast<LoopTimer*>(timer)->handler();
}

}  // namespace quenlor::platform::pulse
