#include "platform/virtual/ManualClock.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using platform::DispatchQueue;
using platform::DispatchTimer;
using platform::virtualhost::ManualClock;

class ManualClockTest : public testing::Test {
 protected:
  std::unique_ptr<DispatchTimer> startTimer(const std::string& name,
                                            std::chrono::milliseconds delay,
                                            std::chrono::milliseconds interval) {
    auto timer = clock.makeTimer(queue);
    timer->schedule(delay, interval, 0ns);
    timer->setEventHandler([this, name] { log(name); });
    timer->resume();
    return timer;
  }

  void log(const std::string& what) {
    events.push_back(what + "@" + std::to_string(clock.elapsed() / 1ms));
  }

  using Events = std::vector<std::string>;
  Events events;
  ManualClock clock;
  std::shared_ptr<DispatchQueue> queue = clock.makeQueue("first");
  std::shared_ptr<DispatchQueue> other = clock.makeQueue("second");
};

TEST_F(ManualClockTest, RunsTicksByDeadlineThenByScheduleAndTheirWorkInBetween) {
  const auto slow = startTimer("slow", 30ms, 30ms);
  const auto fast = startTimer("fast", 20ms, 20ms);
  slow->setEventHandler([this] {
    log("slow");
    other->async([this] { log("work"); });
  });
  clock.advance(45ms);
  EXPECT_EQ(events, (Events{"fast@20", "slow@30", "work@30", "fast@40"}));
  clock.advance(15ms);
  EXPECT_EQ(Events(events.begin() + 4, events.end()), (Events{"slow@60", "work@60", "fast@60"}));
  EXPECT_EQ(clock.currentTime(), ManualClock::kStartTime + 60ms);
}

TEST_F(ManualClockTest, GridIsAnchoredToScheduleWhenResumedLate) {
  const auto timer = clock.makeTimer(queue);
  timer->setEventHandler([this] { log("tick"); });
  clock.advance(5ms);
  timer->schedule(20ms, 20ms, 0ns);
  clock.advance(65ms);
  EXPECT_EQ(events, Events{});
  timer->resume();
  clock.advance(40ms);
  EXPECT_EQ(events, (Events{"tick@70", "tick@85", "tick@105"}));
}

TEST_F(ManualClockTest, NoHandlerStartsOnceTheTimerIsCancelledReplacedOrDestroyed) {
  auto cancelled = startTimer("", 10ms, 10ms);
  auto replaced = startTimer("", 10ms, 10ms);
  auto destroyed = startTimer("", 10ms, 10ms);
  cancelled->setEventHandler([&] {
    log("cancelled");
    cancelled->cancel();
    log("still here");
  });
  replaced->setEventHandler([&] {
    log("replaced");
    replaced->setEventHandler([] {});
  });
  destroyed->setEventHandler([&] {
    log("destroyed");
    destroyed.reset();
  });
  clock.advance(50ms);
  EXPECT_EQ(events, (Events{"cancelled@10", "still here@10", "replaced@10", "destroyed@10"}));
}

TEST_F(ManualClockTest, ATickMayCancelAnotherTimersTickOfTheSameTime) {
  const auto first = startTimer("first", 10ms, 10ms);
  const auto second = startTimer("second", 10ms, 10ms);
  first->setEventHandler([&] {
    log("first");
    second->cancel();
  });
  clock.advance(10ms);
  EXPECT_EQ(events, (Events{"first@10"}));
}

TEST_F(ManualClockTest, AsyncWaitsAndSyncRunsWhatWaitsOnItsQueueFirst) {
  queue->async([this] {
    queue->assertCurrent();
    log("a1");
  });
  other->async([this] { log("b1"); });
  EXPECT_EQ(events, Events{});
  queue->sync([this] {
    queue->assertCurrent();
    log("sync");
    queue->async([this] { log("a2"); });
  });
  EXPECT_EQ(events, (Events{"a1@0", "sync@0"}));
  clock.runPending();
  EXPECT_EQ(events, (Events{"a1@0", "sync@0", "b1@0", "a2@0"}));
}

TEST_F(ManualClockTest, WorkOutlivesAQueueThatIsDestroyedByItsOwnWork) {
  queue->async([this] {
    queue.reset();
    log("destroyed");
  });
  queue->async([this] { log("after"); });
  clock.runPending();
  EXPECT_EQ(events, (Events{"destroyed@0", "after@0"}));
  other->sync([this] { other.reset(); });
  EXPECT_EQ(other, nullptr);
}

TEST_F(ManualClockTest, DropsWaitingWorkThatHoldsItsOwnQueue) {
  std::weak_ptr<DispatchQueue> dropped;
  {
    ManualClock shortLived;
    const auto held = shortLived.makeQueue("held");
    dropped = held;
    held->async([held] { FAIL() << "nobody asked for it"; });
  }
  EXPECT_TRUE(dropped.expired());
}

TEST_F(ManualClockTest, EndsTheProgramWhereRealQueuesWouldHang) {
  EXPECT_DEATH(queue->assertCurrent(), "not running as work of queue first");
  EXPECT_DEATH(queue->sync([this] { queue->sync([] {}); }), "sync\\(\\) on queue first");
  EXPECT_DEATH(queue->sync([this] { other->sync([this] { queue->sync([] {}); }); }),
               "sync\\(\\) on queue first");
}

}  // namespace
}  // namespace quenlor::test
