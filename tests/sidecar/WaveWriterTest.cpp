#include "FailingCalls.h"
#include "SampleEncoding.h"
#include "WaveWriter.h"
#include "WaveWriterError.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

namespace fs = std::filesystem;

class WaveWriterTest : public testing::Test {
 protected:
  const test::TemporaryFolder folder;
  const fs::path path = folder / "new/deeper/a.wav";
  const fs::path link = folder / "link.wav";
};

TEST_F(WaveWriterTest, WritesAndFinalizes) {
  WaveWriter writer(path);
  EXPECT_EQ(test::readFile(path).size(), 44U);
  EXPECT_EQ(writer.targetFormat, platform::AudioFormat::float32(48'000, 2, false));
  writer.append({0.5F, -1.0F, 9.0F}, {-0.5F, 1.0F}, 2);
  writer.append({}, {}, 0);
  EXPECT_EQ(test::readFile(path).substr(40, 4), std::string(4, '\0')) << "until the end";
  EXPECT_EQ(writer.finalize(0.25), (StopResult{0.25, 52}));
  EXPECT_EQ(writer.finalize(7.0), (StopResult{7.0, 52}));
  EXPECT_EQ(test::readWaveFile(path).samples,
            (std::vector<std::int16_t>{16'384, -16'384, -32'768, 32'767}));
  EXPECT_THROW(writer.append({0}, {0}, 1), std::system_error) << "the file is closed";
  writer.discard();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(WaveWriterTest, ReportsTheLongerDuration) {
  const std::vector<float> second(48'000);
  for (const auto& [argument, duration] : {std::pair{0.5, 1.0}, {2.5, 2.5}, {-1.0, 1.0}}) {
    WaveWriter writer(path);
    writer.append(second, second, 48'000);
    EXPECT_EQ(writer.finalize(argument), (StopResult{duration, 192'044}));
  }
}

TEST_F(WaveWriterTest, RefusesRunsThatAreNotThere) {
  WaveWriter writer(path);
  EXPECT_THROW(writer.append({1, 1}, {1}, 2), WaveWriterError);
  EXPECT_THROW(writer.append({1}, {1, 1}, 2), WaveWriterError);
  EXPECT_THROW(writer.append({1}, {1}, -1), WaveWriterError);
  EXPECT_EQ(writer.finalize(0).sizeBytes, 44U);
  EXPECT_EQ(test::readFile(path).size(), 44U);
}

/// Once discarded, the file is anybody's: one that comes to the path later stays, even where it is
/// the same file under a name that somebody else gave it.
TEST_F(WaveWriterTest, DiscardsItsOwnFileOnce) {
  WaveWriter writer(path);
  fs::create_hard_link(path, link);
  writer.append({0.5F}, {0.5F}, 1);
  writer.discard();
  EXPECT_FALSE(fs::exists(path));
  fs::rename(link, path);
  const std::string before = test::readFile(path);
  EXPECT_EQ(writer.finalize(3.0), (StopResult{3.0, 48}));
  writer.discard();
  EXPECT_EQ(test::readFile(path), before);
}

TEST_F(WaveWriterTest, CountsOnlyWhatWasWritten) {
  WaveWriter writer(path);
  const std::vector<float> run(100, 0.5F);
  {
    const test::FileSizeLimit limit(44 + 600);
    writer.append(run, run, 100);
    try {
      writer.append(run, run, 100);
      ADD_FAILURE() << "the write cannot have succeeded";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EFBIG);
      EXPECT_NE(std::string(error.what()).find("a.wav"), std::string::npos) << error.what();
    }
  }
  EXPECT_EQ(writer.finalize(0).sizeBytes, 444U);
  EXPECT_EQ(test::readFile(path).size(), 644U)
      << "what a failed write came to stays behind the data that the header counts";
}

TEST_F(WaveWriterTest, ReportsAFailedCloseButNoInterruption) {
  for (const int error : {EINTR, EIO, EDQUOT}) {
    WaveWriter writer(path);
    test::interruptions = 3;
    writer.append({0.5F}, {0.5F}, 1);
    EXPECT_EQ(test::interruptions, 0);
    int reported = 0;
    test::closeError = error;
    try {
      writer.finalize(0);
    } catch (const std::system_error& failure) {
      reported = failure.code().value();
    }
    test::closeError = 0;
    EXPECT_EQ(reported, error == EINTR ? 0 : error);
    EXPECT_EQ(test::readFile(path).size(), 48U);
    writer.discard();
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(WaveWriterTest, LeavesTheFileWhereTheHeaderCannotBeWritten) {
  const test::FileSizeLimit limit(10);
  EXPECT_THROW(WaveWriter{path}, std::system_error);
  EXPECT_TRUE(fs::exists(path));
}

std::string hexadecimal(const WaveWriter::Header& header) {
  std::string text;
  for (const std::byte byte : header) {
    text += "0123456789ABCDEF"[std::to_integer<unsigned>(byte) >> 4];
    text += "0123456789ABCDEF"[std::to_integer<unsigned>(byte) & 15];
  }
  return text;
}

TEST(WaveHeader, IsCanonical) {
  const struct {
    std::uint64_t bytes;
    std::string riffSize, dataSize;
  } cases[] = {{0, "24000000", "00000000"},
               {192'000, "24EE0200", "00EE0200"},
               {4'294'967'258, "FEFFFFFF", "DAFFFFFF"},
               {4'294'967'259, "FFFFFFFF", "DBFFFFFF"},
               {4'294'967'260, "FFFFFFFF", "DCFFFFFF"},
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
  const std::vector<std::pair<int, std::vector<float>>> cases = {
      {32'767, {1.0F, 1.5F, infinity, 0.99999994F}},
      {16'384, {0.5F}},
      {2, {3.0F / 65'534}},
      {1, {1.0F / 65'534}},
      {0, {0.0F, -0.0F, NAN, -NAN, 1e-45F}},
      {-1, {-1.0F / 65'534}},
      {-16'384, {-0.5F}},
      {-32'767, {-0.99999994F}},
      {-32'768, {-1.0F, -2.0F, -infinity}}};
  for (const auto& [stored, samples] : cases)
    for (const float sample : samples) EXPECT_EQ(encodeSample(sample), stored) << sample;
}

/// Halves are judged on the single-precision product: a product of 0.49999997 is not a half.
TEST(SampleEncoding, RoundsTheProductExactly) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> anywhere(-1.0F, 1.0F);
  const auto check = [](float sample) {
    if (std::abs(sample) >= 1.0F) return;
    const double product = sample * 32'767.0F;
    const double expected = std::trunc(product + std::copysign(0.5, product));
    ASSERT_EQ(encodeSample(sample), static_cast<int>(expected)) << sample;
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
