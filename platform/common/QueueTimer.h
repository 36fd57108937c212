#pragma once

#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"
#include "platform/common/EventLoop.h"

#include <chrono>
#include <memory>

namespace quenlor::platform {

/// A repeating timer on the steady clock whose ticks are timed by an event loop and run as
/// asynchronous work of a queue. At most one tick is waiting on the queue at a time.
///
/// interval must be above 0. The leeway is not used: ticks are as punctual as the loop's thread. A
/// handler counts as running once its tick has found the timer uncancelled; a caller who must know
/// that none runs any more calls cancel() and then sync() on the queue.
///
/// The loop outlives the timer. The timer keeps the queue, and may be destroyed anywhere.
class QueueTimer final : public DispatchTimer {
 public:
  QueueTimer(EventLoop& eventLoop, std::shared_ptr<DispatchQueue> queue);
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
