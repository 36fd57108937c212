#include "platform/coreaudio/SystemTimer.h"

#include "platform/coreaudio/SystemQueue.h"

#include <cstdint>
#include <utility>

namespace quenlor::platform::coreaudio {

SystemTimer::SystemTimer(const DispatchQueue& queue)
    : source(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, systemQueue(queue))) {}

// A source must not be released while it is suspended.
SystemTimer::~SystemTimer() {
  SystemTimer::cancel();
  SystemTimer::resume();
}

void SystemTimer::schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                           std::chrono::nanoseconds leeway) {
  dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, delay.count()),
                            static_cast<std::uint64_t>(interval.count()),
                            static_cast<std::uint64_t>(leeway.count()));
}

void SystemTimer::setEventHandler(Handler handler) {
  if (handler == nullptr) return dispatch_source_set_event_handler(source, nil);
  dispatch_source_set_event_handler(source, ^{
    handler();
  });
}

// To resume a source that is not suspended is an error.
void SystemTimer::resume() {
  if (!isResumed.exchange(true)) dispatch_resume(source);
}

// Lets no handler start any more, and does not wait for one that runs.
void SystemTimer::cancel() {
  dispatch_source_cancel(source);
}

}  // namespace quenlor::platform::coreaudio
