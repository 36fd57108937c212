#include "platform/virtual/RealTimePace.h"

#include "platform/common/QueueTimer.h"
#include "platform/common/SerialQueue.h"

#include <utility>

namespace quenlor::platform::virtualhost {

// The devices first, since their work waits for that of the queues. The queues' loop times the
// devices' timers as well, so it may post to the devices' loop until it has stopped.
RealTimePace::~RealTimePace() {
  deviceLoop.stop();
  queueLoop.stop();
}

std::shared_ptr<DispatchQueue> RealTimePace::makeQueue(const std::string& label) {
  return std::make_shared<SerialQueue>(queueLoop, label);
}

std::shared_ptr<DispatchQueue> RealTimePace::makeDeviceQueue() {
  return std::make_shared<SerialQueue>(deviceLoop, "devices");
}

std::unique_ptr<DispatchTimer> RealTimePace::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  return std::make_unique<QueueTimer>(queueLoop, std::move(queue));
}

std::chrono::nanoseconds RealTimePace::elapsed() const {
  return std::chrono::steady_clock::now() - startTime;
}

std::chrono::system_clock::time_point RealTimePace::currentTime() const {
  return std::chrono::system_clock::now();
}

}  // namespace quenlor::platform::virtualhost
