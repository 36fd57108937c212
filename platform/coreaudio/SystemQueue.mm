#include "platform/coreaudio/SystemQueue.h"

#include <memory>
#include <utility>

namespace quenlor::platform::coreaudio {

SystemQueue::SystemQueue(const std::string& label)
    : queue(dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL)) {}

void SystemQueue::async(Work work) {
  // A block copies what it captures; the work's own captures are moved instead.
  const auto submitted = std::make_shared<const Work>(std::move(work));
  dispatch_async(queue, ^{
    (*submitted)();
  });
}

void SystemQueue::sync(const Work& work) {
  dispatch_sync(queue, ^{
    work();
  });
}

// True for synchronous work on a foreign thread as well, and so for the IO block.
void SystemQueue::assertCurrent() const {
  dispatch_assert_queue(queue);
}

dispatch_queue_t systemQueue(const DispatchQueue& queue) {
  return dynamic_cast<const SystemQueue&>(queue).systemObject();
}

}  // namespace quenlor::platform::coreaudio
