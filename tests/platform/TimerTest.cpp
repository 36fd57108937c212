#include "platform/common/EventLoop.h"
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

TEST_F(QueueTimerTest, MissedTicksCoalesceIntoOne) {
  timer.setEventHandler([&] { ++ticks; });
  int ticksInTurn = -1;
  queue->sync([&] {
    startTimer(timer);
    passIntervals(5);
    EXPECT_EQ(ticks, 0);
    queue->async([&] { ticksInTurn = ticks; });
  });
  queue->sync([&] { EXPECT_EQ(ticksInTurn, 1); });
}

TEST_F(QueueTimerTest, ATickThatIsAlreadyQueuedDoesNothingOnceCancelledOrRescheduled) {
  QueueTimer rescheduled(loop, queue);
  for (QueueTimer* each : {&timer, &rescheduled}) each->setEventHandler([&] { ++ticks; });
  queue->sync([&] {
    startTimer(timer);
    startTimer(rescheduled);
    passIntervals(3);
    timer.cancel();
    rescheduled.schedule(1h, 1h, 0ns);
  });
  passIntervals(3);
  queue->sync([&] { EXPECT_EQ(ticks, 0); });
}

TEST_F(QueueTimerTest, TheHandlerMayReplaceItselfAndCancel) {
  Gate cancelled;
  std::vector<char> calls;
  timer.setEventHandler([&, alive = std::make_shared<int>(1)] {
    calls.push_back('a');
    timer.setEventHandler([&] {
      calls.push_back('b');
      timer.setEventHandler({});
      timer.cancel();
      cancelled.open();
    });
    EXPECT_EQ(*alive, 1) << "a replaced handler lives until it returns";
  });
  startTimer(timer);
  cancelled.await();
  passIntervals(5);
  queue->sync([&] { EXPECT_EQ(calls, (std::vector{'a', 'b'})); });
}

// A session in small, whose last reference is the one that a tick has just taken.
struct Session {
  std::shared_ptr<SerialQueue> queue;
  std::unique_ptr<QueueTimer> timer;
};

TEST_F(QueueTimerTest, TimerAndQueueMayDieInTheHandler) {
  auto session = std::make_shared<Session>();
  session->queue = std::make_shared<SerialQueue>(loop, "session");
  session->timer = std::make_unique<QueueTimer>(loop, session->queue);
  Gate entered, released, died;
  session->timer->setEventHandler([&, weak = std::weak_ptr<Session>(session)] {
    auto last = weak.lock();
    if (last == nullptr) return;
    entered.open();
    released.await();
    last.reset();
    EXPECT_TRUE(weak.expired());
    died.open();
  });
  startTimer(*session->timer);
  entered.await();
  session.reset();
  released.open();
  died.await();
}

}  // namespace
}  // namespace quenlor::platform
