#include "SessionFixture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioBuffer;
using platform::AudioFormat;

class SessionIntake : public SessionFixture {};

TEST_F(SessionIntake, RecordsTheFirstFaultOfALayout) {
  // 44.1 kHz stereo, 8 bytes a frame or 4 bytes in each of two buffers.
  VirtualSettings interleaved;
  interleaved.output->signal = interleaved.microphone->signal = Signal::nothing;
  VirtualSettings planar = interleaved;
  planar.output->interleaved = false;
  VirtualSettings frameless = interleaved;
  frameless.reportedStreamFormat = frameless.output->format().streamDescription();
  frameless.reportedStreamFormat->mBytesPerFrame = 0;

  std::array<float, 64> memory{};
  float* const samples = memory.data();
  const AudioBuffer whole{2, 256, samples};
  const std::string noFrames = "The system tap callback reported zero frames.";
  const std::string noData = "System tap buffer data was unexpectedly nil.";
  const std::string tooLong = "Owned system buffer was smaller than the callback payload.";
  const std::string layout = "Unexpected AudioBufferList layout from the system tap.";
  const struct {
    const VirtualSettings& settings;
    std::vector<AudioBuffer> buffers;
    std::string message;
  } cases[] = {{frameless, {whole}, "The aggregate device reported zero bytes per frame."},
               {interleaved, {}, noFrames},
               {interleaved, {{2, 7, samples}}, noFrames},
               {interleaved, {{2, 0, nullptr}}, noFrames},
               {interleaved, {{2, 255, samples}}, tooLong},
               {planar, {{1, 128, samples}, {1, 132, samples}}, tooLong},
               {interleaved, {{2, 256, nullptr}, {2, 256, nullptr}}, layout},
               {planar, {{2, 255, samples}}, layout},
               {interleaved, {{2, 255, nullptr}}, noData},
               {planar, {{1, 128, samples}, {1, 132, nullptr}}, noData},
               {planar, {{1, 130, samples}, {1, 128, nullptr}}, tooLong}};
  for (const auto& [settings, buffers, message] : cases) {
    makeSession(settings);
    session->start();
    platform->deliverSystem(buffers);
    // After the first fault, other faults and good buffers are dropped.
    platform->deliverSystem(std::vector<AudioBuffer>{{2, 0, nullptr}, {2, 0, nullptr}});
    platform->deliverSystem(std::vector<AudioBuffer>{whole});
    tick();
    EXPECT_EQ(errorOf([&] { session->stop(); }), "Audio format error: " + message);
    EXPECT_FALSE(fileExists());
    EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
    expectEverythingReleased();
  }
}

/// Leaves loud samples in freed memory, where the next buffer of that size is likely to lie.
void soilMemory(std::uint32_t frames) {
  std::vector<std::shared_ptr<platform::PCMBuffer>> buffers;
  for (int i = 0; i < 8; ++i) {
    buffers.push_back(platform::PCMBuffer::create(AudioFormat::float32(48'000, 2, false), frames));
    for (float* channel : buffers.back()->floatChannelData()) std::fill_n(channel, frames, 0.9F);
  }
}

TEST_F(SessionIntake, FillsShorterSecondBuffersWithSilence) {
  makeSession(exactDevices());
  session->start();
  std::array<float, 64> samples{};
  samples.fill(0.5F);
  const std::array<AudioBuffer, 2> buffers = {{{1, 256, samples.data()}, {1, 128, samples.data()}}};
  soilMemory(64);
  platform->deliverSystem(buffers);
  session->stop();
  const WaveFile file = recording();
  ASSERT_EQ(file.left.size(), 64U);
  for (std::size_t i = 0; i < 64; ++i) {
    EXPECT_NEAR(file.left[i], 0.5F, 1e-4F) << i;
    EXPECT_NEAR(file.right[i], i < 32 ? 0.5F : 0.0F, 1e-4F) << i;
  }
}

}  // namespace
}  // namespace quenlor::test
