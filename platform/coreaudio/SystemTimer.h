#pragma once

#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"

#include <atomic>
#include <chrono>
#include <dispatch/dispatch.h>

namespace quenlor::platform::coreaudio {

/// A timer source on a dispatch queue, which it keeps. The system releases a handler as work of the
/// queue, some time after it was replaced or the timer was cancelled.
class SystemTimer final : public DispatchTimer {
 public:
  explicit SystemTimer(const DispatchQueue& queue);
  ~SystemTimer() override;

  SystemTimer(const SystemTimer&) = delete;
  SystemTimer& operator=(const SystemTimer&) = delete;

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds leeway) override;
  void setEventHandler(Handler handler) override;
  void resume() override;
  void cancel() override;

 private:
  const dispatch_source_t source;
  std::atomic<bool> isResumed = false;
};

}  // namespace quenlor::platform::coreaudio
