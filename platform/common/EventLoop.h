#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// One thread that runs work, at once or at a given time. What queues and timers are built on.
///
/// post() and postAt() may be called from any thread. Work must not throw.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Work = std::function<void()>;

  /// Starts the thread. Throws std::system_error where there is none to be had.
  EventLoop();

  /// Runs what was posted for now, on the loop's thread, drops what was posted for later, and waits
  /// for the thread to end. Must not be called on the loop's own thread, nor while something may
  /// still post.
  ~EventLoop();

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Runs work on the loop's thread, in the order of posting.
  void post(Work work);

  /// Runs work on the loop's thread once the deadline has come, never earlier. It cannot be taken
  /// back: let the work hold weakly whatever may go away, and check whether it is still wanted.
  void postAt(Clock::time_point deadline, Work work);

  /// From now on runs poll on the loop's thread at each deadline, before the work that was posted
  /// for it: work that comes at no certain time costs no wake-up of its own. Called once at most.
  void startPolling(Work poll);

  /// Once this has returned, poll is not called any more. Not to be called by poll itself.
  void stopPolling();

 private:
  class Engine;
  std::unique_ptr<Engine> engine;
};

}  // namespace quenlor::platform
