#include "platform/common/EventLoop.h"
#include "platform/common/HandoverBalance.h"
#include "platform/common/QueueTimer.h"
#include "platform/common/SerialQueue.h"
#include "tests/platform/Gate.h"

#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace quenlor::platform {
namespace {

using namespace std::chrono_literals;
using test::Gate;
using Clock = EventLoop::Clock;

class QueueTimerTest : public testing::Test {
 protected:
  // Waits until the loop has served every deadline of the next few intervals.
  void passIntervals(int count) {
    Gate passed;
    loop.postAt(Clock::now() + count * interval, [&] { passed.open(); });
    passed.await();
  }

  void startTimer(QueueTimer& started) {
    started.schedule(interval, interval, 0ns);
    started.resume();
  }

  const Clock::duration interval = 2ms;
  EventLoop loop;
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>(loop, "ticks");
  QueueTimer timer{loop, queue};
  int ticks = 0;
};

TEST_F(QueueTimerTest, TicksOnTheQueueAndNeverEarly) {
  Gate enough;
  std::vector<Clock::time_point> times;
  timer.setEventHandler([&] {
    queue->assertCurrent();
    times.push_back(Clock::now());
    if (times.size() == 20) enough.open();
  });
  const auto start = Clock::now();
  timer.schedule(3 * interval, interval, 0ns);
  passIntervals(5);
  queue->sync([&] { EXPECT_TRUE(times.empty()) << "a new timer is suspended"; });
  timer.resume();
  enough.await();
  timer.cancel();
  queue->sync([] {});
  for (std::size_t n = 0; n < times.size(); ++n)
    EXPECT_GE(times[n], start + (3 + static_cast<int>(n)) * interval);
}

// One run more a tick, and not all that is missing at once.
TEST_F(QueueTimerTest, RunsTwiceAtATickWhileItIsBehind) {
  int runs = 0, questions = 0;
  QueueTimer late{loop, queue, [&](std::chrono::nanoseconds period) {
                    EXPECT_EQ(period, interval);
                    return ++questions <= 3;
                  }};
  Gate enough;
  late.setEventHandler([&] {
    if (++runs == 8) enough.open();
  });
  startTimer(late);
  enough.await();
  late.cancel();
  queue->sync([&] { EXPECT_EQ(questions, runs - 3); });
}

// After a burst of five seconds, one tick more a period until it is taken, and none from then on.
TEST(HandoverBalance, TakesABurstAndComesToRest) {
  HandoverBalance balance;
  const HandoverBalance::Seconds period = 20ms;
  HandoverBalance::Seconds handedOver = 5s;
  int extraTicks = 0, latestExtra = 0;
  for (int tick = 0; tick < 1000; ++tick, handedOver += period) {
    if (!balance.tick(period, handedOver)) continue;
    ++extraTicks;
    latestExtra = tick;
  }
  EXPECT_NEAR(extraTicks, (5 - 0.4) / 0.02, 2);
  EXPECT_LT(latestExtra, 250);
}

// The deadline after a tick half an interval late is half an interval away. A noisy machine can
// make that tick late too, but not every time; a timer that adds up intervals is late every time.
TEST_F(QueueTimerTest, ALateTickDoesNotMoveTheGrid) {
  const Clock::duration wide = 20ms;
  bool keptGrid = false;
  for (int attempt = 0; attempt < 20 && !keptGrid; ++attempt) {
    QueueTimer wideTimer(loop, queue);
    std::vector<Clock::time_point> times;
    Gate two;
    wideTimer.setEventHandler([&] {
      times.push_back(Clock::now());
      if (times.size() == 2) two.open();
    });
    queue->sync([&] {
      wideTimer.schedule(wide, wide, 0ns);
      wideTimer.resume();
      std::this_thread::sleep_until(Clock::now() + wide + wide / 2);
    });
    two.await();
    wideTimer.cancel();
    queue->sync([] {});
    keptGrid = times[1] - times[0] < wide * 9 / 10;
  }
  EXPECT_TRUE(keptGrid);
}

TEST_F(QueueTimerTest, ABusyQueueGetsOneTickAndNoneThatWasCancelledOrRescheduled) {
  QueueTimer cancelled(loop, queue), rescheduled(loop, queue);
  int unwanted = 0, ticksInTurn = -1;
  timer.setEventHandler([&] { ++ticks; });
  for (QueueTimer* each : {&cancelled, &rescheduled}) each->setEventHandler([&] { ++unwanted; });
  queue->sync([&] {
    for (QueueTimer* each : {&timer, &cancelled, &rescheduled}) startTimer(*each);
    passIntervals(5);
    EXPECT_EQ(ticks, 0);
    cancelled.cancel();
    rescheduled.schedule(1h, 1h, 0ns);
    queue->async([&] { ticksInTurn = ticks; });
  });
  passIntervals(3);
  queue->sync([&] {
    EXPECT_EQ(ticksInTurn, 1);
    EXPECT_EQ(unwanted, 0);
  });
}

TEST_F(QueueTimerTest, TheHandlerMayReplaceItselfAndDestroyItsTimerAndQueue) {
  auto ownQueue = std::make_shared<SerialQueue>(loop, "own");
  auto owned = std::make_unique<QueueTimer>(loop, std::move(ownQueue));
  Gate died;
  std::vector<char> calls;
  owned->setEventHandler([&, alive = std::make_shared<int>(1)] {
    calls.push_back('a');
    owned->setEventHandler([&] {
      calls.push_back('b');
      owned.reset();
      died.open();
    });
    EXPECT_EQ(*alive, 1) << "a replaced handler lives until it returns";
  });
  startTimer(*owned);
  died.await();
  passIntervals(5);
  EXPECT_EQ(calls, (std::vector{'a', 'b'}));
}

}  // namespace
}  // namespace quenlor::platform
