#pragma once

#include "platform/virtual/Pace.h"

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace quenlor::platform::virtualhost {

/// A pace that stands still until it is told to go on.
///
/// Everything runs on the one thread that calls advance(), runPending() or a queue's sync(), so
/// that a run is the same each time. Nothing here may be called from another thread. The clock
/// outlives the queues and timers that it made.
///
/// A queue's async() leaves its work for the next of these calls; sync() first runs the work that
/// waits on that queue, then its own item, on the caller's stack. Waiting for a queue whose work is
/// running ends the program, since on real queues it would never end.
class ManualClock final : public Pace {
 public:
  /// What currentTime() says before the first advance(): 2026-01-01 00:00:00 UTC.
  static constexpr std::chrono::sys_seconds kStartTime =
      std::chrono::sys_days{std::chrono::year{2026} / std::chrono::January / 1};

  ManualClock() = default;
  /// Drops the work that still waits.
  ~ManualClock() override;

  /// Runs the waiting work, then every timer tick that falls within duration, in the order of their
  /// deadlines (of their schedule() calls where two are equal), and after each the work that it
  /// made. Not called from a work item.
  void advance(std::chrono::nanoseconds duration);

  /// Runs the work that waits on all queues, and what it submits, in the order of submission.
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
  /// One entry for each work item submitted, naming its queue; the items wait in the queues.
  std::deque<std::shared_ptr<QueueState>> turns;
  /// Timers with a grid, in the order of their schedule() calls.
  std::vector<std::shared_ptr<TimerState>> timers;
  bool running = false;
};

}  // namespace quenlor::platform::virtualhost
