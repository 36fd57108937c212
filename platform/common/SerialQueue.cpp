#include "platform/common/SerialQueue.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::platform {

class SerialQueue::State : public std::enable_shared_from_this<State> {
 public:
  State(EventLoop& eventLoop, std::string queueLabel)
      : label(std::move(queueLabel)), loop(eventLoop) {}

  void async(Work work) EXCLUDES(mutex);
  void sync(const Work& work) EXCLUDES(mutex);

  // Relaxed is enough: a thread always sees its own last store, and no other thread stores its id.
  bool isCurrent() const {
    return owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

  [[noreturn]] void fail(const char* complaint) const {
    std::fprintf(stderr, "Queue %s: %s\n", label.c_str(), complaint);
    std::abort();
  }

  const std::string label;

 private:
  struct Item {
    Work work;
    // Where a thread waits for the item; guarded by the mutex.
    bool* finished = nullptr;
  };

  void waitForTurn(const Work& work) REQUIRES(mutex);
  void takeOwnership() { owner.store(std::this_thread::get_id(), std::memory_order_relaxed); }
  void giveUpOwnership() EXCLUDES(mutex);
  void postDrain();
  void drain() EXCLUDES(mutex);
  void announce(bool& finished) EXCLUDES(mutex);

  EventLoop& loop;
  std::atomic<std::thread::id> owner;

  Mutex mutex;
  std::condition_variable_any itemFinished;
  std::vector<Item> pending GUARDED_BY(mutex);
  // Whether a thread owns the queue or a drain is on its way. Only then is anything pending.
  bool busy GUARDED_BY(mutex) = false;

  // What drain() works on; kept for its memory.
  std::vector<Item> running;
};

void SerialQueue::State::async(Work work) {
  MutexLock lock(mutex);
  pending.push_back({std::move(work)});
  if (!std::exchange(busy, true)) postDrain();
}

void SerialQueue::State::sync(const Work& work) {
  if (isCurrent()) fail("sync() from the queue's own work would wait for itself.");
  {
    MutexLock lock(mutex);
    if (busy) return waitForTurn(work);
    busy = true;
  }
  takeOwnership();
  work();
  giveUpOwnership();
}

void SerialQueue::State::waitForTurn(const Work& work) {
  bool finished = false;
  pending.push_back({[&work] { work(); }, &finished});
  while (!finished) itemFinished.wait(mutex);
}

void SerialQueue::State::giveUpOwnership() {
  owner.store({}, std::memory_order_relaxed);
  MutexLock lock(mutex);
  busy = !pending.empty();
  if (busy) postDrain();
}

void SerialQueue::State::postDrain() {
  loop.post([self = shared_from_this()] { self->drain(); });
}

// Runs what is pending now; what comes in meanwhile takes its turn among the loop's other work.
void SerialQueue::State::drain() {
  {
    MutexLock lock(mutex);
    running.swap(pending);
  }
  takeOwnership();
  for (Item& item : running) {
    item.work();
    // What the work held dies here, as the queue's work and before anyone hears that it is done.
    item.work = nullptr;
    if (item.finished != nullptr) announce(*item.finished);
  }
  running.clear();
  giveUpOwnership();
}

void SerialQueue::State::announce(bool& finished) {
  {
    MutexLock lock(mutex);
    finished = true;
  }
  itemFinished.notify_all();
}

SerialQueue::SerialQueue(EventLoop& eventLoop, std::string label)
    : state(std::make_shared<State>(eventLoop, std::move(label))) {}

SerialQueue::~SerialQueue() = default;

const std::string& SerialQueue::label() const {
  return state->label;
}

void SerialQueue::async(Work work) {
  state->async(std::move(work));
}

void SerialQueue::sync(const Work& work) {
  // The work may destroy the queue.
  const std::shared_ptr<State> kept = state;
  kept->sync(work);
}

void SerialQueue::assertCurrent() const {
  if (!state->isCurrent()) state->fail("the caller is not running as the queue's work.");
}

}  // namespace quenlor::platform
