#include "SessionFixture.h"
#include "tests/support/FileSizeLimit.h"

#include <filesystem>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

class SessionFailure : public SessionFixture {
 protected:
  void startWithStoredFrames() {
    makeSession(exactDevices());
    session->start();
    deliverSystem(std::vector<float>(2000, 0.5F));
    clock->runPending();
  }
};

TEST_F(SessionFailure, AFailedWriteEndsTheRecordingAtTheStop) {
  startWithStoredFrames();
  {
    const FileSizeLimit noMoreSpace(0);
    tick();
  }
  const auto link = linkToRecording();
  tick();
  EXPECT_EQ(std::filesystem::file_size(link), 44U) << "ticks write nothing after a failure";
  EXPECT_NE(errorOf([&] { session->stop(); }).find("File too large"), std::string::npos);
  EXPECT_FALSE(fileExists());
  EXPECT_EQ(std::filesystem::file_size(link), 44U + 4 * 1040)
      << "the stop writes the rest all the same; the tick's frames are lost";
}

/// The stop's own write fails as well: that is told only where nothing failed before.
TEST_F(SessionFailure, TheFirstFailureIsReported) {
  for (const bool failsBefore : {false, true}) {
    startWithStoredFrames();
    if (failsBefore) deliverBadLayout();
    const FileSizeLimit noMoreSpace(0);
    EXPECT_NE(
        errorOf([&] {
          session->stop();
        }).find(failsBefore ? "The system tap callback reported zero frames." : "File too large"),
        std::string::npos);
    EXPECT_FALSE(fileExists());
  }
}

/// Whether a buffer waits already or comes later: once a failure is recorded, it is not stored.
TEST_F(SessionFailure, BothSourcesAreDroppedAfterAFailure) {
  const std::vector<float> samples(100, 0.5F);
  for (const bool fromMicrophone : {false, true}) {
    makeSession(exactDevices());
    session->start();
    const auto deliver = [&] {
      fromMicrophone ? deliverMicrophone(samples) : deliverSystem(samples);
    };
    deliver();
    tick();
    deliver();
    deliverBadLayout();
    const auto buffers = ledger().count("makeBuffer");
    deliver();
    clock->runPending();
    EXPECT_EQ(ledger().count("makeBuffer"), buffers);
    const auto link = linkToRecording();
    EXPECT_NE(errorOf([&] { session->stop(); }), "");
    EXPECT_EQ(std::filesystem::file_size(link), 44U + 4 * 100) << fromMicrophone;
  }
}

TEST_F(SessionFailure, AHeaderThatCannotBeFinishedLeavesTheFileToTheDiscard) {
  makeSession(exactDevices());
  session->start();
  {
    const FileSizeLimit noMoreSpace(0);
    EXPECT_NE(errorOf([&] { session->stop(); }).find("File too large"), std::string::npos);
  }
  EXPECT_TRUE(fileExists());
  EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
  session->discardIfUnfinished();
  EXPECT_FALSE(fileExists());
  expectEverythingReleased();
}

}  // namespace
}  // namespace quenlor::test
