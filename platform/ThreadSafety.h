#pragma once

#include <mutex>

// Clang's thread-safety analysis (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html) as macros
// that vanish under other compilers. CI builds with -Werror=thread-safety.
#if defined(__clang__)
#define QUENLOR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUENLOR_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(name) QUENLOR_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY QUENLOR_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) QUENLOR_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) QUENLOR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) QUENLOR_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) QUENLOR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QUENLOR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) QUENLOR_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) QUENLOR_THREAD_ANNOTATION(assert_capability(x))

namespace quenlor::platform {

/// A std::mutex that the analysis understands.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex.lock(); }
  bool tryLock() TRY_ACQUIRE(true) { return mutex.try_lock(); }
  void unlock() RELEASE() { mutex.unlock(); }

 private:
  std::mutex mutex;
};

/// Holds a Mutex for a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& heldMutex) ACQUIRE(heldMutex) : mutex(heldMutex) { mutex.lock(); }
  ~MutexLock() RELEASE() { mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex;
};

}  // namespace quenlor::platform
