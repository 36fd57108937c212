#include "platform/virtual/RealTimePace.h"
#include "tests/platform/Gate.h"

#include <gtest/gtest.h>
#include <memory>
#include <utility>

namespace quenlor::platform::virtualhost {
namespace {

using namespace std::chrono_literals;
using test::Gate;

/// Passes work on, but says when it comes and holds up the caller.
class HeldUpQueue final : public DispatchQueue {
 public:
  HeldUpQueue(std::shared_ptr<DispatchQueue> targetQueue, Gate& reachedGate, const Gate& exitGate)
      : target(std::move(targetQueue)), reached(reachedGate), exit(exitGate) {}

  void async(Work work) override {
    reached.open();
    exit.await();
    target->async(std::move(work));
  }
  void sync(const Work& work) override { target->sync(work); }
  void assertCurrent() const override ASSERT_CAPABILITY(this) { target->assertCurrent(); }

 private:
  const std::shared_ptr<DispatchQueue> target;
  Gate& reached;
  const Gate& exit;
};

/// Opens its gate when the thread that it was made on ends.
class EndOfThread {
 public:
  explicit EndOfThread(Gate& gate) : ended(gate) {}
  ~EndOfThread() { ended.open(); }
  EndOfThread(const EndOfThread&) = delete;
  EndOfThread& operator=(const EndOfThread&) = delete;

 private:
  Gate& ended;
};

/// The timer is cancelled, and everything ends, when its thread has found the deadline wanted and
/// is about to submit the tick. Whether the tick comes before, while or after the devices' loop
/// goes is up to the scheduler, hence the repetition.
TEST(RealTimePace, EndsWhileATickIsOnItsWayToTheDevices) {
  int ticks = 0;
  for (int round = 0; round < 200; ++round) {
    Gate tickComes, deviceThreadEnds;
    RealTimePace pace;
    const auto devices = pace.makeDeviceQueue();
    devices->async([&] { const thread_local EndOfThread end(deviceThreadEnds); });
    const auto timer =
        pace.makeTimer(std::make_shared<HeldUpQueue>(devices, tickComes, deviceThreadEnds));
    timer->setEventHandler([&] { ++ticks; });
    timer->schedule(1us, 1h, 0ns);
    timer->resume();
    tickComes.await();
  }
  EXPECT_EQ(ticks, 0);
}

}  // namespace
}  // namespace quenlor::platform::virtualhost
