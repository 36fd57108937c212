#include "platform/common/SoxrConverter.h"
#include "tests/platform/Conversion.h"
#include "tests/support/Tone.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace quenlor::platform {
namespace {

constexpr std::uint32_t isFloat = kAudioFormatFlagIsFloat;
constexpr std::uint32_t isSigned = kAudioFormatFlagIsSignedInteger;
constexpr std::uint32_t frameCount = 2000;

const AudioFormat target = AudioFormat::float32(48000, 2, false);

AudioFormat makeFormat(double rate, std::uint32_t kind, std::uint32_t bits, std::uint32_t channels,
                       bool interleaved) {
  const std::uint32_t bytes = bits / 8 * (interleaved ? channels : 1);
  return *AudioFormat::fromStreamDescription({
      .mSampleRate = rate,
      .mFormatID = kAudioFormatLinearPCM,
      .mFormatFlags =
          kind | kAudioFormatFlagIsPacked | (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved),
      .mBytesPerPacket = bytes,
      .mFramesPerPacket = 1,
      .mBytesPerFrame = bytes,
      .mChannelsPerFrame = channels,
      .mBitsPerChannel = bits,
      .mReserved = 0,
  });
}

// A signal of 16-bit steps, which every format can hold exactly: a tone on the first channel,
// another on the second, and full scale on any further one, which must not be heard.
std::int32_t stepAt(std::uint32_t channel, std::uint32_t frame) {
  if (channel >= 2) return -32768;
  const double amplitude = frame % 100 == 0 ? 32767 : 20000;
  return static_cast<std::int32_t>(std::lround(amplitude * std::sin(0.05 * (channel + 1) * frame)));
}

void encode(std::byte* bytes, std::uint32_t kind, std::uint32_t bits, std::int32_t step) {
  if (kind == isFloat && bits == 32) {
    const float value = static_cast<float>(step) / 32768;
    std::memcpy(bytes, &value, 4);
  } else if (kind == isFloat) {
    const double value = step / 32768.0;
    std::memcpy(bytes, &value, 8);
  } else {
    const std::int32_t value = step * (bits == 16 ? 1 : bits == 24 ? 256 : 65536);
    std::memcpy(bytes, &value, bits / 8);
  }
}

std::shared_ptr<PCMBuffer> makeSignal(const AudioFormat& format) {
  const auto& description = format.streamDescription();
  auto buffer = PCMBuffer::create(format, frameCount);
  for (std::uint32_t channel = 0; channel < format.channelCount(); ++channel) {
    const AudioBuffer& part = buffer->audioBufferList()[format.isInterleaved() ? 0 : channel];
    auto* const bytes = static_cast<std::byte*>(part.mData);
    const std::uint32_t bits = description.mBitsPerChannel;
    const std::size_t offset = format.isInterleaved() ? channel * bits / 8 : 0;
    for (std::uint32_t frame = 0; frame < frameCount; ++frame)
      encode(bytes + offset + std::size_t{frame} * description.mBytesPerFrame,
             description.mFormatFlags & (isFloat | isSigned), bits, stepAt(channel, frame));
  }
  buffer->setFrameLength(frameCount);
  return buffer;
}

test::Converted convertSignal(const AudioFormat& format) {
  test::Converted result;
  const auto converter = makeSoxrConverter(format, target);
  if (converter == nullptr) return result;
  convertOne(*converter, target, makeSignal(format), 4 * frameCount, result);
  return result;
}

TEST(SampleFormats, AllReadTheSame) {
  const auto direct = convertSignal(AudioFormat::float32(48000, 2, false));
  ASSERT_EQ(direct.left.size(), frameCount);
  for (std::uint32_t frame = 0; frame < frameCount; ++frame) {
    ASSERT_EQ(direct.left[frame], static_cast<float>(stepAt(0, frame)) / 32768);
    ASSERT_EQ(direct.right[frame], static_cast<float>(stepAt(1, frame)) / 32768);
  }
  for (const double rate : {48000.0, 44100.0}) {
    const auto expected = convertSignal(AudioFormat::float32(rate, 2, false));
    ASSERT_FALSE(expected.left.empty());
    for (const auto& [kind, bits] : {std::pair{isFloat, 32U},
                                     {isFloat, 64U},
                                     {isSigned, 16U},
                                     {isSigned, 24U},
                                     {isSigned, 32U}}) {
      for (const std::uint32_t channels : {1U, 2U, 4U}) {
        for (const bool interleaved : {true, false}) {
          const auto result = convertSignal(makeFormat(rate, kind, bits, channels, interleaved));
          const std::string name = std::to_string(kind) + " " + std::to_string(bits) + " bits, " +
                                   std::to_string(channels) + " channels, " +
                                   (interleaved ? "interleaved" : "planar");
          EXPECT_EQ(result.left, expected.left) << name;
          EXPECT_EQ(result.right, channels == 1 ? expected.left : expected.right) << name;
        }
      }
    }
  }
}

TEST(SampleFormats, OthersAreRefused) {
  const auto with = [](auto change) {
    auto description = makeFormat(44100, isSigned, 16, 2, true).streamDescription();
    change(description);
    return *AudioFormat::fromStreamDescription(description);
  };
  using Description = AudioStreamBasicDescription;
  const AudioFormat sources[] = {
      with([](Description& d) { d.mFormatID = fourCharCode("aac "); }),
      with([](Description& d) { d.mFormatFlags |= kAudioFormatFlagIsBigEndian; }),
      with([](Description& d) { d.mFormatFlags &= ~isSigned; }),
      with([](Description& d) { d.mFormatFlags |= isFloat; }),
      with([](Description& d) { d.mBitsPerChannel = 24, d.mBytesPerFrame = 8; }),
      with([](Description& d) { d.mBytesPerFrame = 2; }),
      with([](Description& d) { d.mBytesPerFrame = 0; }),
      with([](Description& d) { d.mChannelsPerFrame = 0x80000002; }),
      with([](Description& d) { d.mSampleRate = 1e300; }),
      with([](Description& d) { d.mSampleRate = 1e-300; }),
      makeFormat(44100, isSigned, 8, 2, true),
      makeFormat(44100, isFloat, 16, 2, true),
      AudioFormat::float32(44100, 0, false),
  };
  for (const AudioFormat& source : sources)
    EXPECT_EQ(makeSoxrConverter(source, target), nullptr) << &source - sources;

  const AudioFormat source = AudioFormat::float32(44100, 2, true);
  EXPECT_EQ(makeSoxrConverter(source, AudioFormat::float32(48000, 2, true)), nullptr);
  EXPECT_EQ(makeSoxrConverter(source, AudioFormat::float32(48000, 1, false)), nullptr);
  EXPECT_EQ(makeSoxrConverter(source, makeFormat(48000, isSigned, 16, 2, false)), nullptr);
}

}  // namespace
}  // namespace quenlor::platform
