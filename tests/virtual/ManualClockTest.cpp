#include "platform/virtual/ManualClock.h"

#include <gtest/gtest.h>
#include <string>

namespace quenlor::platform::virtualhost {
namespace {

using namespace std::chrono_literals;

TEST(ManualClock, RunsTicksByDeadlineThenByScheduleAndTheirWorkInBetween) {
  ManualClock clock;
  std::string events;
  const auto logs = [&](const std::string& what) {
    return [&, what] { events += what + '@' + std::to_string(clock.elapsed() / 1ms) + ' '; };
  };
  const auto queue = clock.makeQueue("first"), other = clock.makeQueue("second");
  const auto slow = clock.makeTimer(queue), fast = clock.makeTimer(queue);
  slow->schedule(30ms, 30ms, 0ns);
  fast->schedule(20ms, 20ms, 0ns);
  slow->setEventHandler([&] {
    logs("slow")();
    other->async(logs("work"));
  });
  fast->setEventHandler(logs("fast"));
  slow->resume();
  fast->resume();
  clock.advance(45ms);
  EXPECT_EQ(events, "fast@20 slow@30 work@30 fast@40 ");
  clock.advance(15ms);
  EXPECT_EQ(events, "fast@20 slow@30 work@30 fast@40 slow@60 work@60 fast@60 ");
  EXPECT_EQ(clock.currentTime(), ManualClock::kStartTime + 60ms);
}

}  // namespace
}  // namespace quenlor::platform::virtualhost
