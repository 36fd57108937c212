#include "FileSizeLimit.h"
#include "WaveWriter.h"
#include "WaveWriterError.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace quenlor {
namespace {

std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
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

TEST(WaveWriter, WritesAndFinalizes) {
  const test::TemporaryFolder folder;
  const auto path = folder / "new/deeper/a.wav";
  WaveWriter writer(path);
  EXPECT_EQ(contents(path).size(), 44U);
  EXPECT_EQ(writer.targetFormat, platform::AudioFormat::float32(48'000, 2, false));
  writer.append({0.5F, -1.0F, 9.0F}, {-0.5F, 1.0F}, 2);
  writer.append({}, {}, 0);
  EXPECT_EQ(contents(path).substr(0, 44),
            std::string(
                reinterpret_cast<const char*>(WaveWriter::makeHeader(0, 48'000, 2, 16).data()), 44))
      << "sizes are patched only at the end";
  const StopResult result = writer.finalize(0.25);
  EXPECT_EQ(result, (StopResult{0.25, 52}));
  EXPECT_EQ(writer.finalize(7.0), (StopResult{7.0, 52}));
  EXPECT_EQ(test::readWaveFile(path).samples,
            (std::vector<std::int16_t>{16'384, -16'384, -32'768, 32'767}));
  EXPECT_THROW(writer.append({0}, {0}, 1), std::system_error) << "the file is closed";
  writer.discard();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(WaveWriter, ReportsTheLongerDuration) {
  const test::TemporaryFolder folder;
  for (const auto& [argument, duration] :
       std::vector<std::pair<double, double>>{{0.5, 1.0}, {2.5, 2.5}, {-1.0, 1.0}}) {
    WaveWriter writer(folder / "a.wav");
    const std::vector<float> second(48'000);
    writer.append(second, second, 48'000);
    EXPECT_EQ(writer.finalize(argument), (StopResult{duration, 192'044}));
  }
}

TEST(WaveWriter, RefusesRunsThatAreNotThere) {
  const test::TemporaryFolder folder;
  WaveWriter writer(folder / "a.wav");
  EXPECT_THROW(writer.append({1, 1}, {1}, 2), WaveWriterError);
  EXPECT_THROW(writer.append({1}, {1, 1}, 2), WaveWriterError);
  EXPECT_THROW(writer.append({1}, {1}, -1), WaveWriterError);
  EXPECT_EQ(writer.finalize(0).sizeBytes, 44U);
  EXPECT_EQ(contents(folder / "a.wav").size(), 44U);
}

TEST(WaveWriter, ReplacesFilesAndLinksButNotFolders) {
  const test::TemporaryFolder folder;
  std::ofstream(folder / "old.wav") << std::string(100, 'x');
  std::ofstream(folder / "kept") << "kept";
  std::filesystem::create_symlink("kept", folder / "link.wav");
  std::filesystem::create_symlink("nowhere", folder / "dangling.wav");
  ASSERT_EQ(::mkfifo((folder / "fifo.wav").c_str(), 0600), 0);
  for (const char* name : {"old.wav", "link.wav", "dangling.wav", "fifo.wav"}) {
    WaveWriter writer(folder / name);
    writer.finalize(0);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(folder / name)))
        << name;
    EXPECT_EQ(contents(folder / name).size(), 44U) << name;
  }
  EXPECT_EQ(contents(folder / "kept"), "kept");
  EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));

  std::filesystem::create_directories(folder / "folder.wav/inside");
  const std::string long_name(300, 'n');
  using namespace std::string_literals;
  for (const std::string& name : {"folder.wav"s, "folder.wav/"s, ""s, "kept/a.wav"s, "kept\0x"s}) {
    const std::string path = name.empty() ? "" : folder.path().string() + "/" + name;
    EXPECT_THROW(WaveWriter{path}, std::system_error) << name;
  }
  EXPECT_THROW(WaveWriter{folder / long_name}, WaveWriterError);
  EXPECT_TRUE(std::filesystem::exists(folder / "folder.wav/inside"));
  EXPECT_EQ(contents(folder / "kept"), "kept");
}

TEST(WaveWriter, DiscardsItsOwnFileOnly) {
  const test::TemporaryFolder folder;
  const auto path = folder / "a.wav";
  WaveWriter writer(path);
  std::filesystem::remove(path);
  writer.discard();  // nothing there: no harm
  WaveWriter second(path);
  std::filesystem::remove(path);
  std::ofstream(path) << "somebody else's";
  second.discard();
  EXPECT_EQ(contents(path), "somebody else's");
}

TEST(WaveWriter, CountsOnlyWhatWasWritten) {
  const test::TemporaryFolder folder;
  WaveWriter writer(folder / "a.wav");
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
}

TEST(WaveWriter, LeavesTheFileWhereTheHeaderCannotBeWritten) {
  const test::TemporaryFolder folder;
  const test::FileSizeLimit limit(10);
  EXPECT_THROW(WaveWriter(folder / "a.wav"), std::system_error);
  EXPECT_TRUE(std::filesystem::exists(folder / "a.wav"));
}

}  // namespace
}  // namespace quenlor
