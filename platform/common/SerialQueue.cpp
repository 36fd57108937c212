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
    // For a thread that waits for the item; guarded by the mutex.
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
  // While work is pending, the queue is owned or a drain is posted.
  bool isDrainPosted GUARDED_BY(mutex) = false;

  // The work that the owner runs; a member so that its memory is reused.
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

// Waits until the owner has run the work, or until there is no owner. Returns true in the second
// case: the caller now owns the queue and has to run the pending work, its own included. So it
// never waits for a drain that has not started.
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

// Runs the work that is pending now. Work submitted meanwhile is posted to the loop again.
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
    // The work's captures are destroyed here, as the queue's work, before a waiting thread is
    // woken.
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
