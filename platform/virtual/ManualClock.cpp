#include "platform/virtual/ManualClock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace quenlor::platform::virtualhost {

namespace {

[[noreturn]] void fail(const std::string& complaint) {
  std::fprintf(stderr, "Manual clock: %s\n", complaint.c_str());
  std::abort();
}

}  // namespace

/// Outlives the queue while work is pending.
struct ManualClock::QueueState {
  void runNext() {
    busy = true;
    {
      // The work's captures are destroyed inside this block, as the queue's work.
      const DispatchQueue::Work work = std::move(waiting.front());
      waiting.pop_front();
      work();
    }
    busy = false;
  }

  std::string label;
  std::deque<DispatchQueue::Work> waiting;
  bool busy = false;
};

class ManualClock::Queue final : public DispatchQueue {
 public:
  Queue(ManualClock& owningClock, const std::string& label)
      : clock(owningClock), state(std::make_shared<QueueState>()) {
    state->label = label;
  }

  void async(Work work) override {
    state->waiting.push_back(std::move(work));
    clock.turns.push_back(state);
  }

  void sync(const Work& work) override {
    // The work may destroy the queue.
    const std::shared_ptr<QueueState> kept = state;
    if (kept->busy) fail("sync() on queue " + kept->label + " waits for the queue's own work.");
    while (!kept->waiting.empty()) {
      clock.turns.erase(std::ranges::find(clock.turns, kept));
      kept->runNext();
    }
    kept->busy = true;
    work();
    kept->busy = false;
  }

  void assertCurrent() const override ASSERT_CAPABILITY(this) {
    if (!state->busy) fail("the caller is not running as work of queue " + state->label + ".");
  }

 private:
  ManualClock& clock;
  const std::shared_ptr<QueueState> state;
};

struct ManualClock::TimerState {
  /// Sets the next deadline: the first one of the schedule after time.
  void advanceBeyond(std::chrono::nanoseconds time) {
    deadline += ((time - deadline) / interval + 1) * interval;
  }

  void tick() {
    // The handler may replace itself, or destroy the timer.
    const std::shared_ptr<const DispatchTimer::Handler> current = handler;
    if (current) (*current)();
  }

  std::shared_ptr<DispatchQueue> queue;
  std::shared_ptr<const DispatchTimer::Handler> handler;
  std::chrono::nanoseconds deadline{0};
  std::chrono::nanoseconds interval{0};
  bool resumed = false;
  bool cancelled = false;
};

class ManualClock::Timer final : public DispatchTimer {
 public:
  Timer(ManualClock& owningClock, std::shared_ptr<DispatchQueue> queue)
      : clock(owningClock), state(std::make_shared<TimerState>()) {
    state->queue = std::move(queue);
  }
  ~Timer() override { cancel(); }

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds /*leeway*/) override {
    if (interval <= std::chrono::nanoseconds::zero()) fail("a timer's interval must be above 0.");
    state->deadline = clock.now + delay;
    state->interval = interval;
    std::erase(clock.timers, state);
    if (!state->cancelled) clock.timers.push_back(state);
  }

  void setEventHandler(Handler handler) override {
    state->handler = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
  }

  void resume() override { state->resumed = true; }

  void cancel() override {
    // Releasing the handler may destroy this timer.
    const std::shared_ptr<TimerState> kept = state;
    kept->cancelled = true;
    std::erase(clock.timers, kept);
    kept->handler = nullptr;
  }

 private:
  ManualClock& clock;
  const std::shared_ptr<TimerState> state;
};

ManualClock::~ManualClock() {
  while (!turns.empty()) {
    // Work may own its queue: removing it breaks the cycle.
    const std::shared_ptr<QueueState> queue = std::move(turns.front());
    turns.pop_front();
    queue->waiting.clear();
  }
}

void ManualClock::advance(std::chrono::nanoseconds duration) {
  runPending();
  const std::chrono::nanoseconds end = now + duration;
  while (const std::shared_ptr<TimerState> timer = nextDue(end)) {
    now = std::max(now, timer->deadline);
    timer->advanceBeyond(now);
    timer->queue->async([timer] { timer->tick(); });
    runPending();
  }
  now = end;
}

void ManualClock::runPending() {
  if (std::exchange(running, true)) fail("advance() or runPending() inside a work item.");
  while (!turns.empty()) {
    const std::shared_ptr<QueueState> queue = std::move(turns.front());
    turns.pop_front();
    queue->runNext();
  }
  running = false;
}

std::shared_ptr<ManualClock::TimerState> ManualClock::nextDue(std::chrono::nanoseconds limit) {
  std::shared_ptr<TimerState> next;
  for (const std::shared_ptr<TimerState>& timer : timers) {
    if (!timer->resumed || timer->deadline > limit) continue;
    if (!next || timer->deadline < next->deadline) next = timer;
  }
  return next;
}

std::shared_ptr<DispatchQueue> ManualClock::makeQueue(const std::string& label) {
  return std::make_shared<Queue>(*this, label);
}

std::unique_ptr<DispatchTimer> ManualClock::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  return std::make_unique<Timer>(*this, std::move(queue));
}

std::chrono::system_clock::time_point ManualClock::currentTime() const {
  return kStartTime + std::chrono::duration_cast<std::chrono::system_clock::duration>(now);
}

}  // namespace quenlor::platform::virtualhost
