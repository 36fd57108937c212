#pragma once

#include "platform/DispatchQueue.h"
#include "platform/common/EventLoop.h"

#include <memory>
#include <string>

namespace quenlor::platform {

/// A serial queue whose asynchronous work runs on the thread of an event loop. Several queues may
/// share a loop; each is serial for itself.
///
/// sync() on an idle queue runs the work on the calling thread, which owns the queue meanwhile: a
/// sound server's thread hands over a buffer without waking another thread. On a busy queue it
/// waits for its turn, which the loop's thread serves. So work on one queue of a loop must not wait
/// with sync() for another queue of the same loop.
///
/// The loop outlives the queue and its work. The queue itself may be destroyed anywhere.
class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue(EventLoop& eventLoop, std::string label);
  ~SerialQueue() override;

  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const override;
  void async(Work work) override;
  void sync(const Work& work) override;
  void assertCurrent() const override ASSERT_CAPABILITY(this);

 private:
  // Held by the queue and by whatever runs its work, so that work may outlive the queue.
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quenlor::platform
