#pragma once

#include "platform/ThreadSafety.h"

#include <functional>

namespace quenlor::platform {

/// A serial queue of work: items run one at a time, in the order in which they were submitted.
///
/// The queue is a capability of the thread-safety analysis: data that only its work may touch is
/// GUARDED_BY it, and each work item starts with assertCurrent().
///
/// All functions may be called from any thread. A work item must not throw. The queue may be
/// destroyed on any thread, its own work included: work already submitted still runs.
class CAPABILITY("queue") DispatchQueue {
 public:
  using Work = std::function<void()>;

  virtual ~DispatchQueue() = default;

  /// Submits work and returns at once, without running it.
  virtual void async(Work work) = 0;

  /// Runs work after everything submitted before it and returns when it is done. All of that may
  /// run on the calling thread. Must not be called from the queue's own work, which would deadlock.
  virtual void sync(const Work& work) = 0;

  /// Ends the program unless the caller is running as this queue's work.
  virtual void assertCurrent() const ASSERT_CAPABILITY(this) = 0;
};

}  // namespace quenlor::platform
