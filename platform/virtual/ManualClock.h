#pragma once

#include "platform/virtual/Pace.h"

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace quenlor::platform::virtualhost {

/// A pace whose time advances only in advance().
///
/// Everything runs on the thread that calls advance(), runPending() or a queue's sync(), so that
/// every run is the same. Not thread-safe. The clock outlives the queues and timers that it made.
///
/// A queue's async() leaves its work for the next of these calls. sync() runs the queue's pending
/// work, then its own, on the caller's stack. sync() on a queue whose work is running aborts the
/// program, since on a real queue it would deadlock.
class ManualClock final : public Pace {
 public:
  /// What currentTime() says before the first advance(): 2026-01-01 00:00:00 UTC.
  static constexpr std::chrono::sys_seconds kStartTime =
      std::chrono::sys_days{std::chrono::year{2026} / std::chrono::January / 1};

  ManualClock() = default;
  /// Drops the pending work.
  ~ManualClock() override;

  /// Runs the pending work, then every timer tick within duration in the order of their deadlines
  /// (of their schedule() calls if two are equal), and after each tick the work that it submitted.
  /// Must not be called from a work item.
  void advance(std::chrono::nanoseconds duration);

  /// Runs the pending work of all queues, and the work that it submits, in the order of submission.
  void runPending();

  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override;
  std::shared_ptr<DispatchQueue> makeDeviceQueue() override { return makeQueue("devices"); }
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override;
  std::chrono::nanoseconds elapsed() const override { return now; }
  std::chrono::system_clock::time_point currentTime() const override;

 private:
  class Queue;
  class Timer;
  struct QueueState;
  struct TimerState;

  std::shared_ptr<TimerState> nextDue(std::chrono::nanoseconds limit);

  std::chrono::nanoseconds now{0};
  /// The queue of each pending work item, in the order of submission. The queues hold the items.
  std::deque<std::shared_ptr<QueueState>> turns;
  /// Scheduled timers, in the order of their schedule() calls.
  std::vector<std::shared_ptr<TimerState>> timers;
  bool running = false;
};

}  // namespace quenlor::platform::virtualhost
