#include "FileSizeLimit.h"
#include "WaveWriter.h"
#include "WaveWriterError.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
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

/// Once discarded, the file is anybody's: one that comes to the path later stays, even where it is
/// the same file under a name that somebody else gave it.
TEST(WaveWriter, DiscardsOnce) {
  const test::TemporaryFolder folder;
  const auto path = folder / "a.wav";
  WaveWriter writer(path);
  std::filesystem::create_hard_link(path, folder / "other.wav");
  writer.discard();
  EXPECT_FALSE(std::filesystem::exists(path));
  std::filesystem::rename(folder / "other.wav", path);
  writer.discard();
  EXPECT_EQ(contents(path).size(), 44U);
}

TEST(WaveWriter, TouchesNothingAfterADiscard) {
  const test::TemporaryFolder folder;
  const auto link = folder / "link.wav";
  WaveWriter writer(folder / "a.wav");
  std::filesystem::create_hard_link(writer.outputURL, link);
  writer.append({0.5F}, {0.5F}, 1);
  writer.discard();
  const std::string before = contents(link);
  EXPECT_EQ(writer.finalize(3.0), (StopResult{3.0, 48}));
  EXPECT_EQ(contents(link), before);
  EXPECT_FALSE(std::filesystem::exists(writer.outputURL));
}

TEST(WaveWriter, LeavesAnOpenFileAsItIs) {
  const test::TemporaryFolder folder;
  std::optional<WaveWriter> writer(folder / "a.wav");
  writer->append({0.5F, 0.5F}, {0.5F, 0.5F}, 2);
  writer.reset();
  const std::string bytes = contents(folder / "a.wav");
  EXPECT_EQ(bytes.size(), 52U);
  EXPECT_EQ(bytes.substr(40, 4), std::string(4, '\0')) << "nobody finalized it";
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
  EXPECT_EQ(contents(folder / "a.wav").size(), 644U)
      << "what a failed write came to stays behind the data that the header counts";
}

TEST(WaveWriter, FinalizesOnceThereIsRoomAgain) {
  const test::TemporaryFolder folder;
  WaveWriter writer(folder / "a.wav");
  writer.append({0.5F}, {-0.5F}, 1);
  {
    const test::FileSizeLimit limit(10);
    try {
      writer.finalize(0);
      ADD_FAILURE() << "the header cannot have been written";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EFBIG);
    }
  }
  EXPECT_EQ(writer.finalize(2.0), (StopResult{2.0, 48}));
  EXPECT_EQ(test::readWaveFile(folder / "a.wav").samples,
            (std::vector<std::int16_t>{16'384, -16'384}));
}

TEST(WaveWriter, LeavesTheFileWhereTheHeaderCannotBeWritten) {
  const test::TemporaryFolder folder;
  const test::FileSizeLimit limit(10);
  EXPECT_THROW(WaveWriter(folder / "a.wav"), std::system_error);
  EXPECT_TRUE(std::filesystem::exists(folder / "a.wav"));
}

}  // namespace
}  // namespace quenlor
