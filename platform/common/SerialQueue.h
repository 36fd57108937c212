#pragma once

#include "platform/DispatchQueue.h"
#include "platform/common/EventLoop.h"

#include <memory>
#include <string>

namespace quenlor::platform {

/// A serial queue whose asynchronous work runs on the thread of an event loop. Several queues may
/// share a loop; each is serial for itself.
///
/// sync() on an idle queue runs the pending work and then its own on the calling thread, without
/// waking another one. So the work of one queue may call sync() on another queue of the same loop.
/// On a busy queue, sync() waits for its turn.
///
/// The loop outlives the queue and its work. The queue itself may be destroyed on any thread.
class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue(EventLoop& eventLoop, std::string label);
  ~SerialQueue() override;

  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void async(Work work) override;
  void sync(const Work& work) override;
  void assertCurrent() const override ASSERT_CAPABILITY(this);

 private:
  // Shared with the thread that runs the work, since work may outlive the queue.
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quenlor::platform
