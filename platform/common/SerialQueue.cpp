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

  bool becomeOwnerIfIdle() EXCLUDES(mutex);
  bool awaitTurn(const Work& work, bool& finished) EXCLUDES(mutex);
  void giveUpOwnership() EXCLUDES(mutex);
  void postDrain() REQUIRES(mutex);
  void drain() EXCLUDES(mutex);
  void runPending() EXCLUDES(mutex);
  void announce(bool& finished) EXCLUDES(mutex);

  EventLoop& loop;
  std::atomic<std::thread::id> owner;

  Mutex mutex;
  std::condition_variable_any ownerChanged;
  std::vector<Item> pending GUARDED_BY(mutex);
  bool isOwned GUARDED_BY(mutex) = false;
  // Where anything is pending, the queue is owned or a drain is on its way.
  bool isDrainPosted GUARDED_BY(mutex) = false;

  // What the owner works on; kept for its memory.
  std::vector<Item> running;
};

void SerialQueue::State::async(Work work) {
  MutexLock lock(mutex);
  pending.push_back({std::move(work)});
  if (!isOwned) postDrain();
}

void SerialQueue::State::sync(const Work& work) {
  if (isCurrent()) fail("sync() from the queue's own work would wait for itself.");
  if (becomeOwnerIfIdle()) {
    owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    work();
    giveUpOwnership();
    return;
  }
  bool finished = false;
  if (!awaitTurn(work, finished)) return;
  runPending();
  giveUpOwnership();
}

bool SerialQueue::State::becomeOwnerIfIdle() {
  MutexLock lock(mutex);
  if (isOwned || !pending.empty()) return false;
  isOwned = true;
  return true;
}

// Waits until an owner has run the work, or until there is no owner. True in the second case: the
// caller is the owner then, and has to run the work among what is pending. So nobody waits for a
// drain that has not even begun.
bool SerialQueue::State::awaitTurn(const Work& work, bool& finished) {
  MutexLock lock(mutex);
  pending.push_back({[&work] { work(); }, &finished});
  while (isOwned && !finished) ownerChanged.wait(mutex);
  if (finished) return false;
  isOwned = true;
  return true;
}

void SerialQueue::State::giveUpOwnership() {
  owner.store({}, std::memory_order_relaxed);
  MutexLock lock(mutex);
  isOwned = false;
  if (!pending.empty()) postDrain();
  ownerChanged.notify_all();
}

void SerialQueue::State::postDrain() {
  if (std::exchange(isDrainPosted, true)) return;
  loop.post([self = shared_from_this()] { self->drain(); });
}

// Runs what is pending now; what comes in meanwhile takes its turn among the loop's other work.
void SerialQueue::State::drain() {
  {
    MutexLock lock(mutex);
    isDrainPosted = false;
    if (isOwned || pending.empty()) return;
    isOwned = true;
  }
  runPending();
  giveUpOwnership();
}

void SerialQueue::State::runPending() {
  {
    MutexLock lock(mutex);
    running.swap(pending);
  }
  owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  for (Item& item : running) {
    item.work();
    // What the work held dies here, as the queue's work and before anyone hears that it is done.
    item.work = nullptr;
    if (item.finished != nullptr) announce(*item.finished);
  }
  running.clear();
}

void SerialQueue::State::announce(bool& finished) {
  {
    MutexLock lock(mutex);
    finished = true;
  }
  ownerChanged.notify_all();
}

SerialQueue::SerialQueue(EventLoop& eventLoop, std::string label)
    : state(std::make_shared<State>(eventLoop, std::move(label))) {}

SerialQueue::~SerialQueue() = default;

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
