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
                                            std::chrono::milliseconds interval) {
    auto timer = clock.makeTimer(queue);
    timer->schedule(interval, interval, 0ns);
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
  const auto slow = startTimer("slow", 30ms);
  const auto fast = startTimer("fast", 20ms);
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

}  // namespace
}  // namespace quenlor::test
