#pragma once

#include "platform/common/EventLoop.h"
#include "platform/virtual/Pace.h"

#include <chrono>
#include <memory>
#include <string>

namespace quenlor::platform::virtualhost {

/// A pace that goes with the machine's clock. One thread serves the queues, another the devices;
/// destruction waits for both to end.
class RealTimePace final : public Pace {
 public:
  RealTimePace() = default;
  ~RealTimePace() override;

  RealTimePace(const RealTimePace&) = delete;
  RealTimePace& operator=(const RealTimePace&) = delete;

  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override;
  std::shared_ptr<DispatchQueue> makeDeviceQueue() override;
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override;
  std::chrono::nanoseconds elapsed() const override;
  std::chrono::system_clock::time_point currentTime() const override;

 private:
  const std::chrono::steady_clock::time_point startTime = std::chrono::steady_clock::now();
  EventLoop queueLoop;
  EventLoop deviceLoop;
};

}  // namespace quenlor::platform::virtualhost
