#pragma once

#include "platform/ThreadSafety.h"

#include <utility>

namespace quenlor::platform::coreaudio {

/// A block that the system calls on threads of its own. The system may still call it after it was
/// stopped; the lock prevents that.
template <typename Block>
class Gate {
 public:
  explicit Gate(Block gatedBlock) : block(std::move(gatedBlock)) {}

  /// Calls the block, unless the gate is closed.
  template <typename Argument>
  void call(Argument argument) {
    const MutexLock lock(mutex);
    if (isOpen) block(std::move(argument));
  }

  void open() {
    const MutexLock lock(mutex);
    isOpen = true;
  }

  /// Waits for a call that runs; once this has returned, the block is not called any more.
  void close() {
    const MutexLock lock(mutex);
    isOpen = false;
  }

 private:
  Mutex mutex;
  bool isOpen GUARDED_BY(mutex) = true;
  const Block block;
};

}  // namespace quenlor::platform::coreaudio
