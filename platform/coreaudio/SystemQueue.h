#pragma once

#include "platform/DispatchQueue.h"

#include <dispatch/dispatch.h>
#include <string>

namespace quenlor::platform::coreaudio {

/// A serial dispatch queue: no attributes, no quality of service, no target. It keeps itself alive
/// while work is submitted, so this object may go at any time and on the queue's own thread.
class SystemQueue final : public DispatchQueue {
 public:
  explicit SystemQueue(const std::string& label);

  void async(Work work) override;
  void sync(const Work& work) override;
  void assertCurrent() const override ASSERT_CAPABILITY(this);

  dispatch_queue_t systemObject() const { return queue; }

 private:
  const dispatch_queue_t queue;
};

/// The system's object behind a queue that this host made. Throws std::bad_cast for any other.
dispatch_queue_t systemQueue(const DispatchQueue& queue);

}  // namespace quenlor::platform::coreaudio
