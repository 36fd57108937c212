#include "platform/pulse/LoopTimer.h"

#include <cstdint>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

constexpr std::chrono::seconds second{1};

}  // namespace

LoopTimer::LoopTimer(PulseConnection& connection, std::function<void()> timerHandler)
    : handler(std::move(timerHandler)),
      api(connection.loopInterface()),
      descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
  if (descriptor < 0) throw PlatformError("The system has no timer left.");
  event = api->io_new(api, descriptor, PA_IO_EVENT_INPUT, &LoopTimer::expired, this);
}

LoopTimer::~LoopTimer() {
  api->io_free(event);
  close(descriptor);
}

void LoopTimer::set(std::chrono::nanoseconds delay) {
  itimerspec time{};
  time.it_value.tv_sec = static_cast<time_t>(delay / second);
  time.it_value.tv_nsec = static_cast<long>((delay % second).count());
  timerfd_settime(descriptor, 0, &time, nullptr);
}

void LoopTimer::stop() {
  set({});
}

void LoopTimer::expired(pa_mainloop_api*, pa_io_event*, int expiredDescriptor, pa_io_event_flags_t,
                        void* timer) {
  // Nothing can be read if the timer was set anew after it had expired.
  std::uint64_t times = 0;
  if (read(expiredDescriptor, &times, sizeof times) != sizeof times) return;
  static_cast<LoopTimer*>(timer)->handler();
}

}  // namespace quenlor::platform::pulse
