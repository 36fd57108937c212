#include "platform/common/EventLoop.h"
#include "platform/common/SerialQueue.h"
#include "tests/platform/Gate.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::platform {
namespace {

using namespace std::chrono_literals;
using test::Gate;

TEST(EventLoop, RunsWhatWasPostedBeforeItEndsAndDropsWhatIsForLater) {
  int ran = 0;
  bool dropped = false;
  {
    EventLoop loop;
    loop.postAt(EventLoop::Clock::now() + 1h, [&] { dropped = true; });
    loop.post([&] {
      ++ran;
      loop.post([&] { ++ran; });
    });
  }
  EXPECT_EQ(ran, 2);
  EXPECT_FALSE(dropped);
}

TEST(EventLoop, DropsWhatIsPostedOnceItHasStopped) {
  bool ran = false;
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  {
    EventLoop loop;
    loop.stop();
    loop.post([&, held] { ran = true; });
    loop.postAt(EventLoop::Clock::now(), [&, held = std::move(held)] { ran = true; });
    loop.stop();
  }
  EXPECT_FALSE(ran);
  EXPECT_TRUE(watched.expired()) << "what is dropped is released";
}

TEST(EventLoop, PollsBeforeEachDeadlineUntilToldNotTo) {
  EventLoop loop;
  int polls = 0;
  const auto expectAtDeadline = [&](int wanted) {
    Gate passed;
    loop.postAt(EventLoop::Clock::now() + 2ms, [&] {
      EXPECT_EQ(polls, wanted);
      passed.open();
    });
    passed.await();
  };
  loop.startPolling([&] { ++polls; });
  expectAtDeadline(1);
  expectAtDeadline(2);
  loop.stopPolling();
  expectAtDeadline(2);
}

TEST(SerialQueue, KeepsTheOrderOfEachThreadAndRunsOneItemAtATime) {
  constexpr int threadCount = 4, itemsPerThread = 1000;
  EventLoop loop;
  SerialQueue queue(loop, "order");
  // Without a lock: only the queue keeps the items apart.
  std::vector<std::pair<int, int>> log;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      for (int item = 0; item < itemsPerThread; ++item) {
        const auto work = [&, thread, item] {
          queue.assertCurrent();
          log.emplace_back(thread, item);
        };
        if (item % 3 != 0) {
          queue.async(work);
          continue;
        }
        queue.sync([&] {
          work();
          // Everything this thread submitted before has run.
          EXPECT_EQ(
              std::count_if(log.begin(), log.end(), [&](auto e) { return e.first == thread; }),
              item + 1);
        });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::vector<int> next(threadCount);
  queue.sync([&] {
    ASSERT_EQ(log.size(), threadCount * itemsPerThread);
    for (const auto& [thread, item] : log)
      EXPECT_EQ(item, next[static_cast<std::size_t>(thread)]++);
  });
}

TEST(SerialQueue, RunsSynchronousWorkOnTheCallerWhenIdleAndAsynchronousWorkOnTheLoop) {
  EventLoop loop;
  SerialQueue queue(loop, "threads");
  std::thread::id loopThread, syncThread, asyncThread;
  Gate done;
  loop.post([&] { loopThread = std::this_thread::get_id(); });
  queue.sync([&] {
    syncThread = std::this_thread::get_id();
    queue.async([&] {
      asyncThread = std::this_thread::get_id();
      done.open();
    });
    EXPECT_EQ(asyncThread, std::thread::id()) << "must wait until the owner is done";
  });
  done.await();
  EXPECT_EQ(syncThread, std::this_thread::get_id());
  EXPECT_EQ(asyncThread, loopThread);
}

/// The loop's thread cannot get to the other queue's work while it waits, so it does it right
/// there.
TEST(SerialQueue, SynchronousWorkOnTheLoopDoesNotWaitForTheLoop) {
  EventLoop loop;
  SerialQueue first(loop, "first"), second(loop, "second");
  std::vector<int> order;
  Gate done;
  first.async([&] {
    second.async([&] { order.push_back(1); });
    second.sync([&] { order.push_back(2); });
    done.open();
  });
  done.await();
  EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(SerialQueue, SynchronousWorkWaitsForItsTurnOnABusyQueue) {
  EventLoop loop;
  SerialQueue queue(loop, "busy");
  Gate running, mayEnd;
  std::vector<int> order;
  queue.async([&] {
    running.open();
    mayEnd.await();
    order.push_back(1);
  });
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  queue.async([&, held = std::move(held)] { order.push_back(2); });
  queue.async([&] {
    order.push_back(3);
    EXPECT_TRUE(watched.expired()) << "what work holds is released before the next item";
  });
  running.await();
  std::thread opener([&] { mayEnd.open(); });
  queue.sync([&] { order.push_back(4); });
  opener.join();
  EXPECT_EQ(order, (std::vector{1, 2, 3, 4}));
}

TEST(SerialQueue, MayDieInItsOwnWorkAndStillRunsWhatWasSubmitted) {
  EventLoop loop;
  for (const bool synchronous : {false, true}) {
    auto owned = std::make_unique<SerialQueue>(loop, "owned");
    SerialQueue& queue = *owned;
    Gate running, submitted, done;
    const auto work = [&] {
      running.open();
      submitted.await();
      owned.reset();
    };
    std::thread caller([&] { synchronous ? queue.sync(work) : queue.async(work); });
    running.await();
    queue.async([&] { done.open(); });
    submitted.open();
    done.await();
    caller.join();
    EXPECT_EQ(owned, nullptr);
  }
}

TEST(SerialQueueDeathTest, EndsTheProgramWhenUsedAgainstItsRules) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        EventLoop loop;
        SerialQueue queue(loop, "guarded");
        queue.assertCurrent();
      },
      "Queue guarded: the caller is not running");
  EXPECT_DEATH(
      {
        EventLoop loop;
        SerialQueue queue(loop, "guarded");
        queue.sync([&] { queue.sync([] {}); });
      },
      "Queue guarded: sync\\(\\) from the queue's own work");
}

}  // namespace
}  // namespace quenlor::platform
