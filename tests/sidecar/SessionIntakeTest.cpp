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

/// Interleaved 44.1 kHz stereo: 8 bytes a frame.
VirtualSettings interleavedDevices() {
  VirtualSettings settings;
  settings.output->signal = Signal::nothing;
  settings.microphone->signal = Signal::nothing;
  return settings;
}

TEST_F(SessionIntake, RecordsTheFirstFaultOfALayout) {
  std::array<float, 64> samples{};
  const AudioBuffer whole{2, 256, samples.data()};
  auto planar = interleavedDevices();
  planar.output->interleaved = false;
  auto frameless = interleavedDevices();
  frameless.reportedStreamFormat = frameless.output->format().streamDescription();
  frameless.reportedStreamFormat->mBytesPerFrame = 0;
  struct Case {
    VirtualSettings settings;
    std::vector<AudioBuffer> buffers;
    std::string message;
  };
  const std::vector<Case> cases = {
      {frameless, {whole}, "The aggregate device reported zero bytes per frame."},
      {interleavedDevices(), {}, "The system tap callback reported zero frames."},
      {interleavedDevices(),
       {{2, 7, samples.data()}},
       "The system tap callback reported zero frames."},
      {interleavedDevices(), {{2, 0, nullptr}}, "The system tap callback reported zero frames."},
      {interleavedDevices(),
       {{2, 255, samples.data()}},
       "Owned system buffer was smaller than the callback payload."},
      {interleavedDevices(),
       {whole, whole},
       "Unexpected AudioBufferList layout from the system tap."},
      {planar, {whole}, "Unexpected AudioBufferList layout from the system tap."},
      {interleavedDevices(), {{2, 256, nullptr}}, "System tap buffer data was unexpectedly nil."},
      {planar,
       {{1, 128, samples.data()}, {1, 128, nullptr}},
       "System tap buffer data was unexpectedly nil."},
      {planar,
       {{1, 128, samples.data()}, {1, 132, samples.data()}},
       "Owned system buffer was smaller than the callback payload."}};
  for (const Case& one : cases) {
    makeSession(one.settings);
    session->start();
    platform->deliverSystem(one.buffers);
    // After the first fault, other faults and good buffers are dropped.
    platform->deliverSystem(std::vector<AudioBuffer>{{2, 0, nullptr}, {2, 0, nullptr}});
    platform->deliverSystem(std::vector<AudioBuffer>{whole});
    tick();
    EXPECT_EQ(errorOf([&] { session->stop(); }), "Audio format error: " + one.message);
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
