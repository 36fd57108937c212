// What quenlor-record tells of the trace of its sidecar, which scripts play here.

#include "tests/recorder/FakeSidecar.h"
#include "tests/recorder/RecorderRun.h"
#include "tests/support/WaitUntil.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::test {

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

using Traced = RecorderRun;

const std::string eventfulRecording =
    "trace 'System audio is recorded from Speakers.'\n"
    "trace 'The microphone is recorded from Headset.'\n"
    "trace 'A step of the start.'\n"
    "trace 'Audio tap session reached ready state.'\n"
    "ready\n"
    "trace 'The microphone is interrupted: No samples come.'\n"
    "trace 'A host says something new.'\n"
    "read -r stop\n"
    "trace 'Stop signal received. Finalizing capture.'\n"
    "trace 'The microphone: silence of 0.250 s was put in for lost time.'\n"
    "echo '{\"durationSeconds\":61.5,\"sizeBytes\":11808044}'\n";

TEST_F(Traced, TellsWhatHappensAndHowMuchIsSilence) {
  ChildProcess child = record({}, makeSidecar(folder / "sidecar", eventfulRecording));
  awaitReady(child);
  EXPECT_EQ(child.readLine(),
            "System audio is recorded from Speakers, the microphone from Headset.");
  for (const char* notice :
       {"The microphone is interrupted; silence is recorded meanwhile. No samples come.",
        "A host says something new."})
    EXPECT_THAT(child.readLine().value_or(""),
                MatchesRegex("00:00:[0-9][0-9]  " + std::string(notice)));
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(child.readLine(), "Recorded 61.50 s (11.8 MB) to recording.wav");
  EXPECT_EQ(child.readLine(), "Silence was inserted for lost sound: 0.250 s of the microphone.");
  EXPECT_EQ(child.readLine(), std::nullopt);
  EXPECT_EQ(child.standardError(), "");
}

TEST_F(Traced, TellsScriptsNothingOfIt) {
  for (const auto& [option, output] :
       {std::pair<std::string, std::string>{"--quiet", ""},
        {"--json",
         "{\"status\":\"ready\"}\n{\"durationSeconds\":61.5,\"sizeBytes\":11808044}\n"}}) {
    ChildProcess child =
        record({option, "-d", "0.5"}, makeSidecar(folder / "sidecar", eventfulRecording));
    EXPECT_EQ(child.waitForExit(), 0);
    EXPECT_EQ(child.standardOutput(), output);
    EXPECT_EQ(child.standardError(), "");
  }
}

TEST_F(Traced, TellsTheCauseOfAFailure) {
  ChildProcess child = record({}, makeSidecar(folder / "sidecar",
                                              "trace 'There is no microphone: it is gone.'\n"
                                              "echo 'No microphone for the session.' >&2\n"
                                              "exit 1\n"));
  EXPECT_EQ(child.waitForExit(), 1);
  EXPECT_EQ(child.standardError(),
            "quenlor-record: There is no microphone: it is gone.\n"
            "quenlor-record: No microphone for the session.\n");
}

TEST_F(Traced, IsNotWaitedForBeforeItIsReady) {
  writeFile(recording, "precious");
  const std::string sidecar = makeSidecar(folder / "sidecar",
                                          "{ printf RIFF; head -c 40 /dev/zero; } > recording.wav\n"
                                          "echo 'up to here' >&2\n"
                                          "echo $$ > started\n"
                                          "sleep 1000\n");
  for (const int number : {SIGINT, SIGTERM}) {
    ChildProcess child = record({"-f"}, sidecar);
    waitUntil([this] { return std::filesystem::exists(folder / "started"); });
    child.sendSignal(number);
    EXPECT_EQ(child.waitForExit(), 1);
    EXPECT_EQ(child.standardError(),
              "quenlor-record: Stopped before the recording began.\n"
              "quenlor-record: The earlier recording.wav is back.\n");
    std::filesystem::remove(folder / "started");
    EXPECT_THAT(filesLeft(), ElementsAre("recording.wav"));
    EXPECT_EQ(readFile(recording), "precious");
  }
}

}  // namespace

}  // namespace quenlor::test
