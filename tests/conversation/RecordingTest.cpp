// What a recording of the virtual devices sounds like.

#include "tests/conversation/Conversation.h"
#include "tests/support/Tone.h"
#include "tests/support/WaveFile.h"

#include <span>
#include <thread>

namespace quenlor::test {

namespace {

using Recording = Conversation;

TEST_F(Recording, HoldsBothSourcesAtTheirLevel) {
  ChildProcess child = launch();
  awaitReady(child);
  std::this_thread::sleep_for(std::chrono::seconds{1});
  child.write("stop\n");
  expectRecording(finish(child), output);

  const WaveFile wave = readWaveFile(output);
  ASSERT_GE(wave.durationSeconds(), 0.95);
  EXPECT_EQ(wave.left, wave.right);
  // Half a second, a whole number of periods of both tones, away from either end.
  const std::span<const float> middle = std::span(wave.left).subspan(9600, 24000);
  const ToneFit system = fitTone(middle, 440, 48000);
  const ToneFit microphone = fitTone(middle, 1000, 48000);
  EXPECT_NEAR(system.amplitude, 0.25, 0.005);
  EXPECT_NEAR(microphone.amplitude, 0.25, 0.005);
  EXPECT_LT(fitTone(withoutTone(middle, 440, 48000, system), 1000, 48000).residualDecibels, -60);
}

}  // namespace

}  // namespace quenlor::test
