// What the sidecar's standard error comes to for its user.

#include "recorder/TraceInterpreter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::recorder {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Interpreter : public testing::Test {
 protected:
  std::optional<std::string> takeMessage(const std::string& message) {
    return trace.take("[QuenlorHelperAudio] 2026-03-05T14:07:09Z " + message);
  }

  TraceInterpreter trace;
};

TEST_F(Interpreter, TellsChangesInPlainWords) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"System audio is recorded from Speakers (USB, 2.0).",
       "System audio is recorded from Speakers (USB, 2.0)."},
      {"The microphone comes from head now set now; the server brings it to 48000 Hz and 2 "
       "channels.",
       "The microphone comes from head now set now."},
      {"The microphone is interrupted: There is no microphone.",
       "The microphone is interrupted; silence is recorded meanwhile. There is no microphone."},
      {"The microphone comes from headset now; the server brings it to 16000 Hz and 1 channels.",
       "The microphone is back: it comes from headset now."},
      {"The microphone comes from other now.", "The microphone comes from other now."},
      {"The sound server ended the connection: Connection terminated.",
       "The sound server is gone; silence is recorded until it is back. Connection terminated."},
      {"System audio is interrupted: No samples come.", std::nullopt},
      {"The sound server is back.", "The sound server is back."},
      {"System audio comes from Speakers now.",
       "System audio is back: it comes from Speakers now."},
      {"System audio does something new.", "System audio does something new."},
      {"The disk\x1B[2J sings \xC2\x9B\x31m \xC3\xA4.", "The disk?[2J sings ?1m \xC3\xA4."},
  };
  EXPECT_EQ(takeMessage("System audio is recorded from Speakers."), std::nullopt);
  takeMessage("Audio tap session reached ready state.");
  for (const auto& [message, notice] : cases) EXPECT_EQ(takeMessage(message), notice);
  EXPECT_EQ(trace.take("of no form\x07"), "of no form?");
}

TEST_F(Interpreter, SaysNothingOfTheSidecarsOwnSteps) {
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"Received start request frame from the helper.", "the sidecar"},
      {"Decoded start request for title: The microphone is interrupted: x", "the sidecar"},
      {"Creating the audio tap session.", "the sound server"},
      {"Ensuring microphone access.", "permission to use the microphone"},
      {"Starting the microphone engine.", "the microphone"},
      {"Calling AudioDeviceStart.", "system audio"},
      {"AudioDeviceStart succeeded.", "system audio"},
      {"Audio tap session reached ready state.", "the sidecar"},
      {"Stop signal received. Finalizing capture.", "the recording to be completed"},
  };
  EXPECT_EQ(trace.awaited(), "");
  EXPECT_EQ(trace.take("title of two lines"), "title of two lines");
  for (const auto& [message, awaited] : steps) {
    EXPECT_EQ(takeMessage(message), std::nullopt) << message;
    EXPECT_EQ(trace.awaited(), awaited);
  }
  EXPECT_THAT(trace.failure(), IsEmpty());
}

TEST_F(Interpreter, NamesTheDevices) {
  EXPECT_EQ(trace.devices(), "");
  takeMessage("The microphone is recorded from USB mic.");
  EXPECT_EQ(trace.devices(), "The microphone is recorded from USB mic.");
  takeMessage("System audio is recorded from Speakers.");
  EXPECT_EQ(trace.devices(),
            "System audio is recorded from Speakers, the microphone from USB mic.");
}

TEST_F(Interpreter, TellsHowMuchSilenceWasInserted) {
  EXPECT_EQ(trace.insertedSilence(), "");
  EXPECT_EQ(takeMessage("The microphone: silence of 0.250 s was put in for lost time."),
            std::nullopt);
  EXPECT_EQ(trace.insertedSilence(),
            "Silence was inserted for lost sound: 0.250 s of the microphone.");
  takeMessage("System audio: silence of 12.000 s was put in for lost time.");
  EXPECT_EQ(
      trace.insertedSilence(),
      "Silence was inserted for lost sound: 12.000 s of system audio, 0.250 s of the microphone.");
}

TEST_F(Interpreter, PutsTheHostsCauseBeforeTheError) {
  takeMessage("System audio is recorded from Speakers.");
  takeMessage("Calling AudioDeviceStart.");
  takeMessage("Could not start a device: Connection terminated.");
  EXPECT_THAT(trace.failure(), ElementsAre("Could not start a device: Connection terminated."));
  trace.take("Core Audio error while trying to start the aggregate device: stop (1937010544)");
  EXPECT_THAT(trace.failure(),
              ElementsAre("Could not start a device: Connection terminated.",
                          "Core Audio error while trying to start the aggregate device: stop "
                          "(1937010544)"));
  EXPECT_EQ(trace.error(), trace.failure().back());
}

TEST_F(Interpreter, ForgetsACauseThatIsOver) {
  takeMessage("The sound server ended the connection: Connection terminated.");
  takeMessage("The sound server is back.");
  takeMessage("System audio is interrupted: No samples come.");
  takeMessage("System audio comes from speakers now; the server brings it to 1 Hz.");
  trace.take("Writing to \"a.wav\" failed: No space left on device");
  EXPECT_THAT(trace.failure(), ElementsAre("Writing to \"a.wav\" failed: No space left on device"));
}

}  // namespace

}  // namespace quenlor::recorder
