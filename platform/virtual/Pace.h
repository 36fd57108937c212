#pragma once

#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"

#include <chrono>
#include <memory>
#include <string>

namespace quenlor::platform::virtualhost {

/// What drives the virtual host: its time, and the work that happens in that time.
class Pace {
 public:
  virtual ~Pace() = default;

  virtual std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) = 0;

  /// A queue for the devices' own work, which may wait with sync() for any queue of makeQueue().
  virtual std::shared_ptr<DispatchQueue> makeDeviceQueue() = 0;

  virtual std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) = 0;

  /// Time since the pace was made; never goes back. Called from any thread.
  virtual std::chrono::nanoseconds elapsed() const = 0;

  /// The wall clock. Called from any thread.
  virtual std::chrono::system_clock::time_point currentTime() const = 0;
};

}  // namespace quenlor::platform::virtualhost
