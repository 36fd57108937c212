#include "platform/AudioPlatform.h"
#include "platform/common/SoxrConverter.h"
#include "tests/platform/Conversion.h"
#include "tests/support/Tone.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <span>

namespace quenlor::platform {
namespace {

using test::capacityFor;
using test::Converted;
using test::convertOne;

using Status = ConverterOutputStatus;

const AudioFormat target = AudioFormat::float32(48000, 2, false);

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
    const auto frames = static_cast<std::uint32_t>(piece.size());
    const std::uint32_t capacity = capacityFor(rate, 48000, frames);
    convertOne(*converter, target, monoBuffer(rate, piece), capacity, result);
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
  // The rate ratio is rounded before it is multiplied, so this is not 480.
  EXPECT_EQ(capacityFor(44100, 48000, 441), 481U);
  for (const double rate : {44100.0, 48000.0}) {
    const auto samples = test::makeTone(440, rate, 0.5, 4410);
    Converted roomy, narrow;
    convertOne(*monoConverter(rate), target, monoBuffer(rate, samples), 5000, roomy);
    const auto converter = monoConverter(rate);
    convertOne(*converter, target, monoBuffer(rate, samples), 100, narrow);
    EXPECT_EQ(narrow.left.size(), 100U);
    while (narrow.lastStatus == Status::haveData) convertOne(*converter, target, {}, 100, narrow);
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
    EXPECT_EQ(converter->convert(*output, error, test::once(input)), Status::error);
    ASSERT_TRUE(error);
    EXPECT_THROW(std::rethrow_exception(error), PlatformError);
    EXPECT_EQ(output->frameLength(), 0U);
  }
  Converted result;
  convertOne(*converter, target, monoBuffer(44100, std::vector<float>(4410)), 4801, result);
  EXPECT_EQ(result.lastStatus, Status::haveData) << "an error does not spoil the converter";
}

}  // namespace
}  // namespace quenlor::platform
