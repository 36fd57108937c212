#pragma once

#include "platform/DispatchQueue.h"
#include "platform/common/EventLoop.h"

#include <memory>
#include <string>

namespace quenlor::platform {

/// A serial queue whose asynchronous work runs on the thread of an event loop. Several queues may
/// share a loop; each is serial for itself.
///
/// sync() on a queue that no thread works on runs the work on the calling thread, after whatever is
/// pending: a buffer is handed over without waking another thread, and work on one queue of a loop
/// may use sync() on another. Otherwise it waits for its turn.
///
/// The loop outlives the queue and its work. The queue itself may be destroyed anywhere.
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
  // Held by the queue and by whatever runs its work, so that work may outlive the queue.
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quenlor::platform
