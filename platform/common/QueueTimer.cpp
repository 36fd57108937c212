#include "platform/common/QueueTimer.h"

#include "platform/ThreadSafety.h"

#include <cstdint>
#include <utility>

namespace quenlor::platform {

namespace {

using Clock = EventLoop::Clock;

}  // namespace

class QueueTimer::State : public std::enable_shared_from_this<State> {
 public:
  State(EventLoop& eventLoop, std::shared_ptr<DispatchQueue> handlerQueue, IsBehind handlerIsBehind)
      : loop(eventLoop), queue(std::move(handlerQueue)), isBehind(std::move(handlerIsBehind)) {}

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval) EXCLUDES(mutex);
  void setEventHandler(Handler newHandler) EXCLUDES(mutex);
  void resume() EXCLUDES(mutex);
  void cancel() EXCLUDES(mutex);

 private:
  void arm(Clock::time_point deadline) REQUIRES(mutex);
  void deadlineReached(std::uint64_t schedule) EXCLUDES(mutex);
  void tick(std::uint64_t schedule) EXCLUDES(mutex);
  bool isWanted(std::uint64_t schedule) const REQUIRES(mutex) {
    return !cancelled && schedule == currentSchedule;
  }

  EventLoop& loop;
  const std::shared_ptr<DispatchQueue> queue;
  const IsBehind isBehind;

  Mutex mutex;
  // Shared with a running tick, so that replacing the handler does not destroy it meanwhile.
  std::shared_ptr<const Handler> handler GUARDED_BY(mutex);
  Clock::time_point start GUARDED_BY(mutex);
  Clock::duration period GUARDED_BY(mutex) = {};
  // The number of schedule() calls, to recognise the deadlines of an earlier one; 0 before the
  // first.
  std::uint64_t currentSchedule GUARDED_BY(mutex) = 0;
  bool resumed GUARDED_BY(mutex) = false;
  bool cancelled GUARDED_BY(mutex) = false;
};

void QueueTimer::State::schedule(std::chrono::nanoseconds delay,
                                 std::chrono::nanoseconds interval) {
  MutexLock lock(mutex);
  start = Clock::now() + delay;
  period = interval;
  ++currentSchedule;
  if (resumed) arm(start);
}

void QueueTimer::State::setEventHandler(Handler newHandler) {
  auto next = newHandler ? std::make_shared<const Handler>(std::move(newHandler)) : nullptr;
  MutexLock lock(mutex);
  // The old handler is destroyed after the lock is released: its captures may call this timer then.
  if (!cancelled) handler.swap(next);
}

void QueueTimer::State::resume() {
  MutexLock lock(mutex);
  if (std::exchange(resumed, true)) return;
  if (currentSchedule != 0) arm(start);
}

void QueueTimer::State::cancel() {
  std::shared_ptr<const Handler> released;
  MutexLock lock(mutex);
  cancelled = true;
  handler.swap(released);
}

void QueueTimer::State::arm(Clock::time_point deadline) {
  loop.postAt(deadline, [weakSelf = weak_from_this(), schedule = currentSchedule] {
    if (const auto self = weakSelf.lock()) self->deadlineReached(schedule);
  });
}

void QueueTimer::State::deadlineReached(std::uint64_t schedule) {
  {
    MutexLock lock(mutex);
    if (!isWanted(schedule)) return;
  }
  queue->async([weakSelf = weak_from_this(), schedule] {
    if (const auto self = weakSelf.lock()) self->tick(schedule);
  });
}

// The next deadline is set when the tick runs, so that at most one tick waits on a busy queue, and
// before the handler runs, so that a tick follows a slow handler at once.
void QueueTimer::State::tick(std::uint64_t schedule) {
  std::shared_ptr<const Handler> current;
  Clock::duration elapsedPeriod;
  {
    MutexLock lock(mutex);
    if (!isWanted(schedule)) return;
    const auto elapsed = (Clock::now() - start) / period;
    arm(start + (elapsed + 1) * period);
    current = handler;
    elapsedPeriod = period;
  }
  if (!current) return;
  (*current)();
  if (isBehind && isBehind(elapsedPeriod)) (*current)();
}

QueueTimer::QueueTimer(EventLoop& eventLoop, std::shared_ptr<DispatchQueue> queue,
                       IsBehind isBehind)
    : state(std::make_shared<State>(eventLoop, std::move(queue), std::move(isBehind))) {}

QueueTimer::~QueueTimer() {
  state->cancel();
}

void QueueTimer::schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                          std::chrono::nanoseconds /*leeway*/) {
  state->schedule(delay, interval);
}

void QueueTimer::setEventHandler(Handler handler) {
  state->setEventHandler(std::move(handler));
}

void QueueTimer::resume() {
  state->resume();
}

void QueueTimer::cancel() {
  // Releasing the handler may destroy this timer.
  const std::shared_ptr<State> kept = state;
  kept->cancel();
}

}  // namespace quenlor::platform
