#include "SessionFixture.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""ms;

/// A whole recording, over and over, each time with another call of the host's failing.
class SessionSweep : public SessionFixture {
 protected:
  /// Records 300 ms on a new host that fails the given call. False where no call had that number.
  bool recordWithFailure(std::uint64_t call, CallLedger::Repeat repeat) {
    makePlatform({});
    std::filesystem::remove(path);
    ledger().failCall(call, repeat);
    const std::string error = errorOf([this] {
      makeSessionOn(*platform);
      session->start();
      clock->advance(300ms);
      result = session->stop();
    });
    if (ledger().failedCalls().empty()) return false;
    if (error.empty())
      expectWholeRecording();
    else
      expectNothingAfterDiscard();
    expectOnlyFailedReleasesLeft();
    return true;
  }

  void expectWholeRecording() {
    ++recordings;
    EXPECT_EQ(result.sizeBytes, std::filesystem::file_size(path));
    EXPECT_GT(recording().durationSeconds(), 0.26);
  }

  void expectNothingAfterDiscard() {
    ++errors;
    if (session) session->discardIfUnfinished();
    EXPECT_FALSE(fileExists());
  }

  void expectOnlyFailedReleasesLeft() {
    session.reset();
    clock->runPending();
    std::uint64_t left = 0;
    for (const std::string& call : ledger().failedCalls()) {
      if (call == "destroyProcessTap" || call == "destroyAggregateDevice") left += 1;
      if (call == "destroyIOProcID") left += 2;  // the block and its queue
    }
    EXPECT_EQ(ledger().aliveInAll(), left);
    EXPECT_EQ(ledger().misuses(), std::vector<std::string>());
  }

  StopResult result{};
  int recordings = 0;
  int errors = 0;
};

TEST_F(SessionSweep, WhateverFailsTheRecordingIsWholeOrGone) {
  for (const auto repeat : {CallLedger::Repeat::once, CallLedger::Repeat::forGood}) {
    recordings = errors = 0;
    for (std::uint64_t call = 1; recordWithFailure(call, repeat); ++call)
      ASSERT_FALSE(HasFailure()) << "with call " << call << " failing, "
                                 << ledger().failedCalls().front();
    // What a recording can do without: the output's name and its device, an early converter, and
    // each of the four calls that release something.
    EXPECT_EQ(recordings, repeat == CallLedger::Repeat::once ? 7 : 4);
    EXPECT_GT(errors, 100);
  }
}

}  // namespace
}  // namespace quenlor::test
