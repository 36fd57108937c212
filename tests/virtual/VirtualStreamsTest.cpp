#include "platform/virtual/ManualClock.h"
#include "platform/virtual/ToneSource.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/virtual/ScriptedUse.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <numbers>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using namespace quenlor::platform;
using namespace quenlor::platform::virtualhost;

/// The tone by its formula, with 64 bits of mantissa to spare.
float toneAt(const DeviceSettings& device, std::uint64_t frame) {
  const long double turns = static_cast<long double>(device.toneFrequency) *
                            static_cast<long double>(frame) /
                            static_cast<long double>(device.sampleRate);
  const long double angle = 2 * std::numbers::pi_v<long double> * (turns - std::floor(turns));
  return static_cast<float>(static_cast<long double>(device.amplitude) * std::sin(angle));
}

class VirtualStreamsTest : public testing::Test {
 protected:
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
};

TEST_F(VirtualStreamsTest, TonesAreExactAndWholeAcrossBurstAndCycles) {
  const struct {
    DeviceSettings output;
    DeviceSettings microphone;
  } cases[] = {
      {kDefaultOutput, kDefaultMicrophone},
      {{.sampleRate = 11025, .channelCount = 2, .interleaved = false, .toneFrequency = 997},
       {.sampleRate = 22050, .channelCount = 1, .interleaved = true, .toneFrequency = 3}},
      {{.sampleRate = 48000,
        .channelCount = 4,
        .interleaved = true,
        .toneFrequency = 19997,
        .amplitude = 1,
        .toneChannels = 0b0101},
       {.sampleRate = 96000,
        .channelCount = 3,
        .interleaved = false,
        .toneFrequency = 1,
        .amplitude = 0.5F,
        .toneChannels = 0b100}},
  };
  const auto expectTone = [](const DeviceSettings& device,
                             const std::vector<std::vector<float>>& buffers) {
    std::uint64_t frame = 0;
    for (std::size_t cycle = 8; const std::vector<float>& buffer : buffers) {
      const std::size_t frames = buffer.size() / device.channelCount;
      for (std::size_t i = 0; i < buffer.size(); ++i) {
        const std::size_t channel = device.interleaved ? i % device.channelCount : i / frames;
        const std::size_t n = device.interleaved ? i / device.channelCount : i % frames;
        const bool sounds = (device.toneChannels >> channel & 1) != 0;
        ASSERT_NEAR(buffer[i], sounds ? toneAt(device, frame + n) : 0.0F, 1e-7F) << frame + n;
      }
      frame += frames;
      ASSERT_EQ(frame, cycle++ * device.sampleRate / 100);
    }
  };
  for (const auto& [output, microphone] : cases) {
    VirtualPlatform host(clock, {.output = output, .microphone = microphone});
    ScriptedUse use(host);
    use.setUp();
    clock->advance(79ms);
    EXPECT_TRUE(use.systemBuffers.empty() && use.microphoneBuffers.empty());
    clock->advance(1160ms);
    EXPECT_EQ(use.systemBuffers.size(), 116U);
    EXPECT_EQ(use.microphoneBuffers.size(), 116U);
    expectTone(output, use.systemBuffers);
    expectTone(microphone, use.microphoneBuffers);
    use.tearDown();
  }
}

TEST_F(VirtualStreamsTest, ToneHoldsItsPhaseForHours) {
  const ToneSource tone(kDefaultOutput);
  const std::uint64_t day = std::uint64_t{24} * 3600 * 44100;
  for (const std::uint64_t n : {day + 1, day + 1234, day * 365 + 17})
    EXPECT_NEAR(tone.sample(n), toneAt(kDefaultOutput, n), 1e-7F) << n;
}

TEST_F(VirtualStreamsTest, StreamsRunWithTheDeviceSystemFirst) {
  VirtualPlatform host(clock);
  ScriptedUse use(host);
  std::vector<std::array<std::size_t, 2>> progress;
  use.onBuffer = [&] {
    progress.push_back({use.systemBuffers.size(), use.microphoneBuffers.size()});
  };
  use.setUpMicrophone();
  clock->advance(1s);
  EXPECT_TRUE(progress.empty());
  use.setUpSystem();
  clock->advance(90ms);
  EXPECT_EQ(progress, (std::vector<std::array<std::size_t, 2>>{{1, 0}, {1, 1}, {2, 1}, {2, 2}}));
  use.tearDown();
  clock->advance(1s);
  EXPECT_EQ(progress.size(), 4U);

  use.setUpSystem();
  clock->advance(80ms);
  EXPECT_EQ(use.systemBuffers.back(), use.systemBuffers.front());
  EXPECT_EQ(progress.size(), 5U);
  use.tearDown();
}

TEST_F(VirtualStreamsTest, SignalsChangeOneSourceAndKeepItsPlaceInTime) {
  VirtualPlatform host(clock);
  ScriptedUse use(host);
  use.setUp();
  clock->advance(80ms);
  host.setOutputSignal(Signal::silence);
  host.setMicrophoneSignal(Signal::nothing);
  clock->advance(20ms);
  EXPECT_EQ(use.systemBuffers.back(), std::vector<float>(882, 0.0F));
  EXPECT_EQ(use.systemBuffers.size(), 3U);
  EXPECT_EQ(use.microphoneBuffers.size(), 1U);
  host.setOutputSignal(Signal::tone);
  host.setMicrophoneSignal(Signal::tone);
  clock->advance(10ms);
  EXPECT_NEAR(use.systemBuffers.back()[2], toneAt(kDefaultOutput, 10 * 441 + 1), 1e-7F);
  EXPECT_NEAR(use.microphoneBuffers.back()[1], toneAt(kDefaultMicrophone, 10 * 160 + 1), 1e-7F);
  use.tearDown();
}

TEST_F(VirtualStreamsTest, HandsOverWhatATestMakesUp) {
  VirtualPlatform host(clock);
  AudioHardware& hardware = host.hardware();
  AudioObjectID device = 0;
  AudioDeviceIOProcID ioProc{};
  std::vector<AudioBuffer> taken;
  hardware.createAggregateDevice({}, device);
  const auto queue = host.makeQueue("tap");
  hardware.createIOProcID(
      device, queue,
      [&](AudioBufferList input) {
        queue->assertCurrent();
        taken.assign(input.begin(), input.end());
      },
      ioProc);
  const std::array<AudioBuffer, 2> odd = {{{7, 3, nullptr}, {0, 0, &device}}};
  EXPECT_THROW(host.deliverSystem(odd), std::logic_error);
  EXPECT_THROW(host.deliverMicrophone(nullptr), std::logic_error);
  hardware.startDevice(device, ioProc);
  host.deliverSystem(odd);
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_EQ(taken[0].mDataByteSize, 3U);
  EXPECT_EQ(taken[0].mData, nullptr);
  EXPECT_EQ(taken[1].mData, &device);
  hardware.stopDevice(device, ioProc);
  EXPECT_THROW(host.deliverSystem({}), std::logic_error);

  const auto engine = host.makeEngine();
  std::shared_ptr<PCMBuffer> kept;
  engine->installTap(0, 1024, engine->inputFormat(0), [&](auto buffer) { kept = buffer; });
  engine->start();
  const auto buffer = PCMBuffer::create(AudioFormat::float32(8000, 6, true), 5);
  host.deliverMicrophone(buffer);
  EXPECT_EQ(kept, buffer);
}

TEST_F(VirtualStreamsTest, AnEngineMayDieInsideItsOwnTap) {
  VirtualPlatform host(clock);
  auto engine = host.makeEngine();
  engine->installTap(0, 1024, engine->inputFormat(0), [&](auto) { engine.reset(); });
  engine->start();
  host.deliverMicrophone(PCMBuffer::create(AudioFormat::float32(8000, 1, true), 5));
  EXPECT_EQ(engine, nullptr);
  EXPECT_THROW(host.deliverMicrophone(nullptr), std::logic_error);
  EXPECT_EQ(host.ledger()->aliveInAll(), 0U);
}

}  // namespace
}  // namespace quenlor::test
