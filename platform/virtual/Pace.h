#pragma once

#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"

#include <chrono>
#include <memory>
#include <string>

namespace quenlor::platform::virtualhost {

/// The virtual host's clock, and the queues and timers that run by it.
class Pace {
 public:
  virtual ~Pace() = default;

  virtual std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) = 0;

  /// A queue for the devices' work, which may call sync() on any queue of makeQueue().
  virtual std::shared_ptr<DispatchQueue> makeDeviceQueue() = 0;

  virtual std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) = 0;

  /// Monotonic time since the pace was made. Called from any thread.
  virtual std::chrono::nanoseconds elapsed() const = 0;

  /// The wall clock. Called from any thread.
  virtual std::chrono::system_clock::time_point currentTime() const = 0;
};

}  // namespace quenlor::platform::virtualhost
