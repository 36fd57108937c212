#include "WaveWriter.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

std::string hexadecimal(const WaveWriter::Header& header) {
  std::string text;
  for (const std::byte byte : header) {
    text += "0123456789ABCDEF"[std::to_integer<unsigned>(byte) >> 4];
    text += "0123456789ABCDEF"[std::to_integer<unsigned>(byte) & 15];
  }
  return text;
}

TEST(WaveHeader, IsCanonical) {
  struct Case {
    std::uint64_t bytes;
    std::string riffSize;
    std::string dataSize;
  };
  const std::vector<Case> cases = {{0, "24000000", "00000000"},
                                   {192'000, "24EE0200", "00EE0200"},
                                   {4'294'967'258, "FEFFFFFF", "DAFFFFFF"},
                                   {4'294'967'259, "FFFFFFFF", "DBFFFFFF"},
                                   {4'294'967'260, "FFFFFFFF", "DCFFFFFF"},
                                   {4'294'967'295, "FFFFFFFF", "FFFFFFFF"},
                                   {4'294'967'296, "FFFFFFFF", "FFFFFFFF"},
                                   {~std::uint64_t{0} - 44, "FFFFFFFF", "FFFFFFFF"}};
  for (const auto& [bytes, riffSize, dataSize] : cases)
    EXPECT_EQ(hexadecimal(WaveWriter::makeHeader(bytes, 48'000, 2, 16)),
              "52494646" + riffSize + "57415645666D74201000000001000200" +
                  "80BB000000EE02000400100064617461" + dataSize);
  EXPECT_EQ(hexadecimal(WaveWriter::makeHeader(0, 44'100.9, 3, 12)).substr(40, 32),
            "0100030044AC00003207030003000C00")
      << "the rate is truncated, whole bytes count for the block, bits for the byte rate";
}

TEST(WaveHeader, RefusesWhatItCannotHold) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double rate : {-1.0, 4'294'967'296.0, nan, std::numeric_limits<double>::infinity()})
    EXPECT_THROW(WaveWriter::makeHeader(0, rate, 2, 16), std::out_of_range) << rate;
  EXPECT_THROW(WaveWriter::makeHeader(0, 4e9, 2, 1), std::out_of_range);
  EXPECT_THROW(WaveWriter::makeHeader(0, 1e9, 2, 16), std::out_of_range);
  EXPECT_THROW(WaveWriter::makeHeader(0, 0, 65'535, 16), std::out_of_range);
  EXPECT_THROW(WaveWriter::makeHeader(~std::uint64_t{0} - 43, 48'000, 2, 16), std::out_of_range);
  EXPECT_NO_THROW(WaveWriter::makeHeader(0, -0.5, 2, 16));
}

TEST(SampleEncoding, FollowsTheTable) {
  const float infinity = std::numeric_limits<float>::infinity();
  const std::vector<std::pair<float, int>> cases = {{0.0F, 0},
                                                    {-0.0F, 0},
                                                    {1.0F, 32'767},
                                                    {1.5F, 32'767},
                                                    {infinity, 32'767},
                                                    {-1.0F, -32'768},
                                                    {-2.0F, -32'768},
                                                    {-infinity, -32'768},
                                                    {0.5F, 16'384},
                                                    {-0.5F, -16'384},
                                                    {NAN, 0},
                                                    {-NAN, 0},
                                                    {1.0F / 65'534, 1},
                                                    {-1.0F / 65'534, -1},
                                                    {0.99999994F, 32'767},
                                                    {-0.99999994F, -32'767},
                                                    {1e-45F, 0},
                                                    {3.0F / 65'534, 2}};
  for (const auto& [sample, stored] : cases)
    EXPECT_EQ(WaveWriter::encodeSample(sample), stored) << sample;
}

/// Halves are judged on the single-precision product: a product of 0.49999997 is not a half.
TEST(SampleEncoding, RoundsTheProductExactly) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> anywhere(-1.0F, 1.0F);
  const auto check = [](float sample) {
    if (std::abs(sample) >= 1.0F) return;
    const double product = sample * 32'767.0F;
    const double expected = std::trunc(product + std::copysign(0.5, product));
    ASSERT_EQ(WaveWriter::encodeSample(sample), static_cast<int>(expected)) << sample;
  };
  for (int i = 0; i < 200'000; ++i) check(anywhere(random));
  for (int half = -32'767; half < 32'767; ++half) {
    float sample = (static_cast<float>(half) + 0.5F) / 32'767.0F;
    for (int step = 0; step < 3; ++step) sample = std::nextafter(sample, -2.0F);
    for (int step = 0; step < 6; ++step) check(sample = std::nextafter(sample, 2.0F));
  }
}

}  // namespace
}  // namespace quenlor
