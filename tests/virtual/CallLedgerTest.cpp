#include "platform/virtual/CallLedger.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/virtual/ScriptedUse.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

namespace quenlor::test {
namespace {

using platform::virtualhost::CallLedger;
using platform::virtualhost::ManualClock;
using platform::virtualhost::ObjectKind;
using platform::virtualhost::VirtualPlatform;

/// A new virtual platform used from end to end; plan tells its ledger what to fail.
struct WholeUse {
  explicit WholeUse(const std::function<void(CallLedger&)>& plan) {
    plan(*host.ledger());
    use.setUp();
    use.tearDown();
  }

  std::vector<std::string> callsSeenToFail() const {
    std::vector<std::string> names;
    for (const auto& [call, succeeded] : use.outcomes)
      if (!succeeded) names.push_back(call);
    return names;
  }

  VirtualPlatform host{std::make_shared<ManualClock>()};
  ScriptedUse use{host};
};

TEST(CallLedgerTest, WithoutAPlanEverythingSucceedsAndNothingIsLeft) {
  const WholeUse run([](CallLedger&) {});
  CallLedger& ledger = *run.host.ledger();
  EXPECT_EQ(run.callsSeenToFail(), std::vector<std::string>{});
  EXPECT_EQ(ledger.failableCalls(), run.use.outcomes.size());
  EXPECT_EQ(ledger.misuses(), std::vector<std::string>{});
  for (const auto kind : {ObjectKind::tap, ObjectKind::aggregateDevice, ObjectKind::ioProc,
                          ObjectKind::engine, ObjectKind::engineTap, ObjectKind::converter,
                          ObjectKind::queue, ObjectKind::timer, ObjectKind::buffer}) {
    EXPECT_EQ(ledger.created(kind), 1U) << static_cast<int>(kind);
    EXPECT_EQ(ledger.destroyed(kind), 1U) << static_cast<int>(kind);
  }
}

// The caller must see every failure, in the call that was meant and, unless it follows from that
// one, in no other.
TEST(CallLedgerTest, TheNthFailureIsSeenInTheNthCall) {
  const WholeUse complete([](CallLedger&) {});
  const std::uint64_t last = complete.host.ledger()->failableCalls();
  for (std::uint64_t n = 1; n <= last; ++n) {
    const WholeUse run([n](CallLedger& ledger) { ledger.failCall(n); });
    const std::string& meant = complete.use.outcomes[n - 1].call;
    SCOPED_TRACE(meant);
    EXPECT_EQ(run.host.ledger()->failedCalls(), std::vector{meant});
    ASSERT_FALSE(run.callsSeenToFail().empty());
    EXPECT_EQ(run.callsSeenToFail().front(), meant);

    const WholeUse named([&](CallLedger& ledger) { ledger.failNamed(meant); });
    EXPECT_EQ(named.use.outcomes, run.use.outcomes);
  }
}

TEST(CallLedgerTest, FailsForGoodFromACallOn) {
  const WholeUse run([](CallLedger& ledger) { ledger.failCall(3, CallLedger::Repeat::forGood); });
  for (std::size_t i = 0; i < run.use.outcomes.size(); ++i)
    EXPECT_EQ(run.use.outcomes[i].succeeded, i < 2) << run.use.outcomes[i].call;
}

TEST(CallLedgerTest, PlansByNameCountThatNameOnly) {
  CallLedger ledger;
  ledger.failNamed("start", 2);
  ledger.failNamed("stop", 2, CallLedger::Repeat::forGood);
  ledger.setFailureStatus(-7);
  std::vector<platform::OSStatus> statuses;
  for (int i = 0; i < 3; ++i)
    for (const char* name : {"start", "stop"}) statuses.push_back(ledger.attempt(name));
  EXPECT_EQ(statuses, (std::vector<platform::OSStatus>{0, 0, -7, -7, 0, -7}));
  EXPECT_EQ(ledger.failedCalls(), (std::vector<std::string>{"start", "stop", "stop"}));
  EXPECT_EQ(ledger.count("stop"), 3U);
}

TEST(CallLedgerTest, AFailedDestructionLeavesTheObjectAlive) {
  const WholeUse run([](CallLedger& ledger) { ledger.failNamed("destroyProcessTap"); });
  EXPECT_EQ(run.host.ledger()->alive(ObjectKind::tap), 1U);
  EXPECT_EQ(run.host.ledger()->aliveInAll(), 1U);
}

TEST(CallLedgerTest, CountsObjectsThatOutliveThePlatform) {
  auto host = std::make_unique<VirtualPlatform>(std::make_shared<ManualClock>());
  const std::shared_ptr<CallLedger> ledger = host->ledger();
  auto buffer = host->makeBuffer(platform::AudioFormat::float32(48000, 2, true), 8);
  host.reset();
  EXPECT_EQ(ledger->alive(ObjectKind::buffer), 1U);
  buffer.reset();
  EXPECT_EQ(ledger->aliveInAll(), 0U);
}

}  // namespace
}  // namespace quenlor::test
