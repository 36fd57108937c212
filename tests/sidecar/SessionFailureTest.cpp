#include "FileSizeLimit.h"
#include "SessionFixture.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""ms;

class SessionFailure : public SessionFixture {
 protected:
  void startWithStoredFrames() {
    makeSession(exactDevices());
    session->start();
    deliverSystem(std::vector<float>(2000, 0.5F));
    clock->runPending();
  }
};

TEST_F(SessionFailure, EachStepOfSetUpFailsWithItsErrorAndLeavesNothing) {
  const std::string status = ": 1852797029 (nope)";
  const std::string coreAudio = "Core Audio error while trying to ";
  const struct {
    std::string call, error;
  } cases[] = {
      {"authorizationStatus", "Microphone permission was denied for the Quenlor helper."},
      {"inputFormat", "No microphone input node is available for the Quenlor audio session."},
      {"engine.start", "The virtual engine failed to start."},
      {"createProcessTap", coreAudio + "create the Core Audio tap" + status},
      {"createAggregateDevice", coreAudio + "create the aggregate device" + status},
      {"getPropertyData(tuid)", coreAudio + "query the tap UID" + status},
      {"setPropertyData(tap#)", coreAudio + "attach the tap to the aggregate device" + status},
      {"getPropertyData(sfmt)", coreAudio + "query the aggregate stream format" + status},
      {"makeFormat",
       "Audio format error: Unable to create AVAudioFormat from the aggregate device ASBD."},
      {"createIOProcID", coreAudio + "create the aggregate IOProc" + status},
      {"startDevice", coreAudio + "start the aggregate device" + status}};
  for (const auto& [call, error] : cases) {
    makeSession({});
    ledger().failNamed(call);
    EXPECT_EQ(errorOf([&] { session->start(); }), error);
    EXPECT_EQ(ledger().calls().back(), call);
    EXPECT_TRUE(fileExists()) << "start() undoes nothing";
    session->discardIfUnfinished();
    session->discardIfUnfinished();
    EXPECT_FALSE(fileExists());
    if (call == "engine.start") {
      EXPECT_EQ(ledger().count("removeTap"), 1U) << "a tap is removed from a running engine only";
    }
    expectEverythingReleased();
  }
}

TEST_F(SessionFailure, FailuresWhileRecordingShowAtTheStop) {
  const struct {
    std::string call, error;
  } cases[] = {{"makeBuffer", "Audio format error: Unable to allocate an owned system PCM buffer."},
               {"convert", "The virtual converter failed."},
               {"makeConverter", "Audio format error: Unable to create an AVAudioConverter."}};
  for (const auto& [call, error] : cases) {
    makeSession({});
    // The system's samples come first, but the microphone's converter is made during set-up.
    ledger().failNamed(call, call == "makeConverter" ? 2 : 1);
    session->start();
    clock->advance(200ms);
    EXPECT_EQ(errorOf([&] { session->stop(); }), error);
    EXPECT_FALSE(fileExists());
    expectEverythingReleased();
  }
}

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
