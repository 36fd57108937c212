#include "platform/AudioPlatform.h"
#include "platform/common/SoxrConverter.h"
#include "tests/support/Tone.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <span>
#include <utility>
#include <vector>

namespace quenlor::platform {
namespace {

using Status = ConverterOutputStatus;

const AudioFormat target = AudioFormat::float32(48000, 2, false);

// What came out of a converter so far.
struct Converted {
  std::vector<float> left, right;
  Status lastStatus{};
};

// The input block that hands over one buffer, or none, and then reports the end.
AudioConverter::InputBlock once(std::shared_ptr<PCMBuffer> buffer) {
  return [buffer = std::move(buffer)](std::uint32_t, auto& status) mutable {
    status = buffer ? ConverterInputStatus::haveData : ConverterInputStatus::endOfStream;
    return std::exchange(buffer, nullptr);
  };
}

// Converts one buffer into room for capacity frames and appends what came out.
void convertOne(AudioConverter& converter, std::shared_ptr<PCMBuffer> source,
                std::uint32_t capacity, Converted& result) {
  const auto output = PCMBuffer::create(target, capacity);
  std::exception_ptr error;
  result.lastStatus = converter.convert(*output, error, once(std::move(source)));
  if (error) std::rethrow_exception(error);
  const auto planes = output->floatChannelData();
  result.left.insert(result.left.end(), planes[0], planes[0] + output->frameLength());
  result.right.insert(result.right.end(), planes[1], planes[1] + output->frameLength());
}

std::shared_ptr<PCMBuffer> monoBuffer(double rate, std::span<const float> samples) {
  const auto frames = static_cast<std::uint32_t>(samples.size());
  auto buffer = PCMBuffer::create(AudioFormat::float32(rate, 1, false), frames);
  std::copy(samples.begin(), samples.end(), buffer->floatChannelData()[0]);
  buffer->setFrameLength(frames);
  return buffer;
}

std::shared_ptr<AudioConverter> monoConverter(double rate) {
  return makeSoxrConverter(AudioFormat::float32(rate, 1, false), target);
}

// Converts samples in pieces of the sizes that nextSize gives.
Converted convertPieces(double rate, std::span<const float> samples,
                        const std::function<std::size_t()>& nextSize) {
  const auto converter = monoConverter(rate);
  Converted result;
  while (!samples.empty()) {
    const auto piece = samples.first(std::min(nextSize(), samples.size()));
    samples = samples.subspan(piece.size());
    const double room = std::ceil(48000 / rate * static_cast<double>(piece.size()));
    convertOne(*converter, monoBuffer(rate, piece), static_cast<std::uint32_t>(room), result);
  }
  return result;
}

TEST(Converter, GivesTheSameSamplesHoweverTheStreamIsCut) {
  for (const double rate : {44100.0, 16000.0, 96000.0, 48000.0}) {
    const auto samples = test::makeTone(997, rate, 0.5, static_cast<std::size_t>(rate));
    const auto whole = convertPieces(rate, samples, [&] { return samples.size(); });
    std::mt19937 random(1);
    for (const std::size_t size : {0U, 1U, 7U, 441U, 512U, 1023U, 4096U}) {
      const auto cut =
          convertPieces(rate, samples, [&] { return size != 0 ? size : 1 + random() % 3000; });
      const auto common = std::min(cut.left.size(), whole.left.size());
      EXPECT_GE(common, 48000U - 48 * 25) << rate << " Hz in pieces of " << size;
      EXPECT_TRUE(std::equal(cut.left.begin(), cut.left.begin() + static_cast<long>(common),
                             whole.left.begin()))
          << rate << " Hz in pieces of " << size;
      EXPECT_EQ(cut.left, cut.right) << "mono goes to both channels";
    }
  }
}

TEST(Converter, KeepsTonesCleanAndInPlace) {
  const struct {
    double rate;
    std::vector<double> tones;
  } cases[] = {{44100, {997, 10007, 18000, 20000}},
               {96000, {997, 10007, 18000, 20000}},
               {16000, {997, 5003, 7000}},
               {24000, {997, 10007}}};
  for (const auto& [rate, tones] : cases) {
    for (const double tone : tones) {
      const auto samples = test::makeTone(tone, rate, 0.5, static_cast<std::size_t>(rate));
      const auto result = convertPieces(rate, samples, [&] { return samples.size() / 50; });
      // Past the onset, whose edge rings; the phase is that of the tone from its very start.
      constexpr std::size_t skipped = 4800, fitted = 38400;
      const auto fit = test::fitTone(std::span(result.left).subspan(skipped, fitted), tone, 48000);
      EXPECT_LT(fit.residualDecibels, -115) << tone << " Hz at " << rate;
      EXPECT_NEAR(fit.amplitude, 0.5, 0.0005) << tone << " Hz at " << rate;
      const double turns = tone * skipped / 48000;
      EXPECT_NEAR(std::sin(fit.phase - 2 * std::numbers::pi * turns), 0, 1e-5)
          << tone << " Hz at " << rate;
    }
  }
}

TEST(Converter, NeverExceedsTheRoomAndKeepsTheRest) {
  for (const double rate : {44100.0, 48000.0}) {
    const auto samples = test::makeTone(440, rate, 0.5, 4410);
    Converted roomy, narrow;
    convertOne(*monoConverter(rate), monoBuffer(rate, samples), 5000, roomy);
    const auto converter = monoConverter(rate);
    convertOne(*converter, monoBuffer(rate, samples), 100, narrow);
    EXPECT_EQ(narrow.left.size(), 100U);
    while (narrow.lastStatus == Status::haveData) convertOne(*converter, {}, 100, narrow);
    EXPECT_EQ(narrow.lastStatus, Status::endOfStream);
    EXPECT_EQ(narrow.left, roomy.left);
    EXPECT_EQ(narrow.right, roomy.right);
  }
}

TEST(Converter, AsksUntilTheInputEndsOrTheOutputIsFull) {
  const auto converter = monoConverter(48000);
  const auto output = PCMBuffer::create(target, 100);
  const auto buffer = monoBuffer(48000, test::makeTone(440, 48000, 0.5, 40));
  std::exception_ptr error;
  int calls = 0;
  const auto limited = [&](int deliveries, ConverterInputStatus end) {
    calls = 0;
    return converter->convert(*output, error, [&, deliveries, end](std::uint32_t, auto& status) {
      const bool delivers = ++calls <= deliveries;
      status = delivers ? ConverterInputStatus::haveData : end;
      return delivers ? buffer : nullptr;
    });
  };
  EXPECT_EQ(limited(2, ConverterInputStatus::endOfStream), Status::haveData);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(output->frameLength(), 80U);
  EXPECT_EQ(limited(1000, ConverterInputStatus::endOfStream), Status::haveData);
  EXPECT_EQ(calls, 3) << "100 frames are full after three deliveries of 40";
  EXPECT_EQ(output->frameLength(), 100U);
  EXPECT_EQ(limited(0, ConverterInputStatus::noDataNow), Status::haveData);
  EXPECT_EQ(output->frameLength(), 20U) << "those that were left";
  EXPECT_EQ(limited(0, ConverterInputStatus::noDataNow), Status::inputRanDry);
  EXPECT_EQ(limited(0, ConverterInputStatus::endOfStream), Status::endOfStream);
  EXPECT_EQ(output->frameLength(), 0U);
}

TEST(Converter, ReportsBuffersOfAnotherFormatInsteadOfMisreadingThem) {
  const auto converter = monoConverter(44100);
  const auto samples = test::makeTone(440, 16000, 0.5, 160);
  const auto wrongInput = monoBuffer(16000, samples);
  const auto wrongOutput = PCMBuffer::create(AudioFormat::float32(48000, 1, false), 481);
  const auto rightInput = monoBuffer(44100, samples);
  const auto rightOutput = PCMBuffer::create(target, 481);
  for (const auto& [input, output] :
       {std::pair{wrongInput, rightOutput}, std::pair{rightInput, wrongOutput}}) {
    std::exception_ptr error;
    EXPECT_EQ(converter->convert(*output, error, once(input)), Status::error);
    EXPECT_THROW(error ? std::rethrow_exception(error) : void(), PlatformError);
    EXPECT_EQ(output->frameLength(), 0U);
  }
  Converted result;
  convertOne(*converter, monoBuffer(44100, std::vector<float>(4410)), 4801, result);
  EXPECT_EQ(result.lastStatus, Status::haveData) << "an error does not spoil the converter";
}

constexpr std::uint32_t isFloat = kAudioFormatFlagIsFloat;
constexpr std::uint32_t isSigned = kAudioFormatFlagIsSignedInteger;
constexpr std::uint32_t frameCount = 2000;

AudioFormat makeFormat(double rate, std::uint32_t kind, std::uint32_t bits, std::uint32_t channels,
                       bool interleaved) {
  auto description = AudioFormat::float32(rate, channels, interleaved).streamDescription();
  description.mFormatFlags = (description.mFormatFlags & ~isFloat) | kind;
  description.mBitsPerChannel = bits;
  description.mBytesPerFrame = description.mBytesPerPacket = description.mBytesPerFrame * bits / 32;
  return *AudioFormat::fromStreamDescription(description);
}

// A signal of 16-bit steps, which every format can hold exactly: a tone on the first channel,
// another on the second, and full scale on any further one, which must not be heard.
std::int32_t stepAt(std::uint32_t channel, std::uint32_t frame) {
  if (channel >= 2) return -32768;
  const double amplitude = frame % 100 == 0 ? 32767 : 20000;
  return static_cast<std::int32_t>(std::lround(amplitude * std::sin(0.05 * (channel + 1) * frame)));
}

void encode(std::byte* bytes, std::uint32_t kind, std::uint32_t bits, std::int32_t step) {
  const float single = static_cast<float>(step) / 32768;
  const double precise = step / 32768.0;
  const std::int32_t integer = step * (bits == 16 ? 1 : bits == 24 ? 256 : 65536);
  const void* value = &integer;
  if (kind == isFloat) value = bits == 32 ? static_cast<const void*>(&single) : &precise;
  std::memcpy(bytes, value, bits / 8);
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

Converted convertSignal(const AudioFormat& format) {
  Converted result;
  const auto converter = makeSoxrConverter(format, target);
  if (converter == nullptr) return result;
  convertOne(*converter, makeSignal(format), 4 * frameCount, result);
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
          EXPECT_EQ(result.left, expected.left)
              << kind << ' ' << bits << " bits, " << channels << " channels, " << interleaved;
          EXPECT_EQ(result.right, channels == 1 ? expected.left : expected.right);
        }
      }
    }
  }
}

TEST(SampleFormats, OthersAreRefused) {
  using Description = AudioStreamBasicDescription;
  const std::function<void(Description&)> changes[] = {
      [](Description& d) { d.mFormatID = fourCharCode("aac "); },
      [](Description& d) { d.mFormatFlags |= kAudioFormatFlagIsBigEndian; },
      [](Description& d) { d.mFormatFlags &= ~isSigned; },
      [](Description& d) { d.mFormatFlags |= isFloat; },
      [](Description& d) { d.mBitsPerChannel = 24, d.mBytesPerFrame = 8; },
      [](Description& d) { d.mBytesPerFrame = 2; },
      [](Description& d) { d.mBytesPerFrame = 0; },
      [](Description& d) { d.mChannelsPerFrame = 0x80000002; },
      [](Description& d) { d.mSampleRate = 1e300; },
      [](Description& d) { d.mSampleRate = 1e-300; },
  };
  std::vector sources{makeFormat(44100, isSigned, 8, 2, true),
                      makeFormat(44100, isFloat, 16, 2, true),
                      AudioFormat::float32(44100, 0, false)};
  for (const auto& change : changes) {
    auto description = makeFormat(44100, isSigned, 16, 2, true).streamDescription();
    change(description);
    sources.push_back(*AudioFormat::fromStreamDescription(description));
  }
  for (const AudioFormat& source : sources)
    EXPECT_EQ(makeSoxrConverter(source, target), nullptr) << &source - sources.data();

  const AudioFormat source = AudioFormat::float32(44100, 2, true);
  EXPECT_EQ(makeSoxrConverter(source, AudioFormat::float32(48000, 2, true)), nullptr);
  EXPECT_EQ(makeSoxrConverter(source, AudioFormat::float32(48000, 1, false)), nullptr);
  EXPECT_EQ(makeSoxrConverter(source, makeFormat(48000, isSigned, 16, 2, false)), nullptr);
}

}  // namespace
}  // namespace quenlor::platform
