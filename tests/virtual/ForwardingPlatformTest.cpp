#include "platform/ForwardingPlatform.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/virtual/ScriptedUse.h"

#include <gtest/gtest.h>

namespace quenlor::test {
namespace {

using namespace quenlor::platform;
using virtualhost::ManualClock;
using virtualhost::VirtualPlatform;

/// Puts a forwarding object of every kind between the caller and the target.
class ForwardingThroughout : public ForwardingPlatform {
 public:
  explicit ForwardingThroughout(AudioPlatform& host)
      : ForwardingPlatform(host),
        forwardingHardware(host.hardware()),
        forwardingCaptureDevice(host.captureDevice()) {}

  AudioHardware& hardware() override { return forwardingHardware; }
  CaptureDevice& captureDevice() override { return forwardingCaptureDevice; }
  std::unique_ptr<AudioEngine> makeEngine() override {
    return std::make_unique<ForwardingEngine>(ForwardingPlatform::makeEngine());
  }

 private:
  ForwardingHardware forwardingHardware;
  ForwardingCaptureDevice forwardingCaptureDevice;
};

TEST(ForwardingPlatformTest, EveryCallReachesTheTargetAndItsResultTheCaller) {
  const auto clock = std::make_shared<ManualClock>();
  VirtualPlatform direct(clock);
  VirtualPlatform target(clock);
  ForwardingThroughout forwarding(target);
  ScriptedUse directUse(direct);
  ScriptedUse forwardedUse(forwarding);
  for (ScriptedUse* use : {&directUse, &forwardedUse}) {
    use->setUp();
    clock->advance(std::chrono::milliseconds(100));
    use->tearDown();
  }
  EXPECT_EQ(target.ledger()->calls(), direct.ledger()->calls());
  EXPECT_EQ(forwardedUse.outcomes, directUse.outcomes);
  EXPECT_EQ(forwardedUse.systemBuffers, directUse.systemBuffers);
  EXPECT_EQ(forwardedUse.microphoneBuffers, directUse.microphoneBuffers);
  EXPECT_EQ(target.ledger()->aliveInAll(), 0U);
}

}  // namespace
}  // namespace quenlor::test
