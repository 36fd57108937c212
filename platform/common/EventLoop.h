#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// One thread that runs work, at once or at a given time. Queues and timers are built on it.
///
/// post() and postAt() may be called from any thread. Work must not throw.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Work = std::function<void()>;

  /// Starts the thread. Throws std::system_error if it cannot be started.
  EventLoop();

  /// Calls stop(). Must not be called while another thread may still post.
  ~EventLoop();

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Runs what was posted for now, on the loop's thread, and waits for the thread to end. What was
  /// posted for later, or is posted from now on, is dropped. Must not be called on the loop's own
  /// thread. Loops that post to each other are all stopped before the first one is destroyed.
  void stop();

  /// Runs work on the loop's thread, in the order of posting.
  void post(Work work);

  /// Runs work on the loop's thread at the deadline, never earlier. It cannot be cancelled: the
  /// work should hold its objects weakly and check whether it is still wanted.
  void postAt(Clock::time_point deadline, Work work);

  /// From now on runs poll on the loop's thread at each deadline, before the work posted for it, so
  /// that polling costs no wake-ups of its own. Called at most once.
  void startPolling(Work poll);

  /// poll is not called after this returns. Must not be called by poll itself.
  void stopPolling();

 private:
  class Engine;
  std::unique_ptr<Engine> engine;
};

}  // namespace quenlor::platform
