#pragma once

#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"
#include "platform/common/EventLoop.h"

#include <chrono>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// A repeating timer on the steady clock whose ticks are timed by an event loop and run as
/// asynchronous work of a queue. At most one tick is waiting on the queue at a time.
///
/// interval must be above 0. The leeway is ignored. cancel() does not wait for a handler that is
/// running or about to run: to be sure that none is, call cancel() and then sync() on the queue.
///
/// The loop outlives the timer. The timer owns a reference to the queue and may be destroyed on any
/// thread.
class QueueTimer final : public DispatchTimer {
 public:
  /// Asked after each run of the handler, on the queue: whether one run a period is too little, so
  /// that it should run once more at this tick.
  using IsBehind = std::function<bool(std::chrono::nanoseconds period)>;

  QueueTimer(EventLoop& eventLoop, std::shared_ptr<DispatchQueue> queue,
             IsBehind isBehind = nullptr);
  ~QueueTimer() override;

  QueueTimer(const QueueTimer&) = delete;
  QueueTimer& operator=(const QueueTimer&) = delete;

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds leeway) override;
  void setEventHandler(Handler handler) override;
  void resume() override;
  void cancel() override;

 private:
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quenlor::platform
