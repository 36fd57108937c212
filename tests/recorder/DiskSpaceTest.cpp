// Space for a recording on a small disk, and below a limit of file sizes.

#include "recorder/DiskSpace.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <system_error>

namespace quenlor::recorder {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t second = 192'000;

bool append(const fs::path& file, std::size_t bytes) {
  std::ofstream stream(file, std::ios::app);
  stream << std::string(bytes, 'x') << std::flush;
  return stream.good();
}

class SmallDisk : public testing::Test {
 protected:
  /// As another program may do at any time.
  void fillUp() const {
    while (append(disk / "other", 4096)) {
    }
  }

  test::TemporaryFolder folder;
  const fs::path disk = folder / "disk";
  const fs::path recording = disk / "recording.wav";
};

TEST_F(SmallDisk, HasRoomForTheEndOfARecordingThoughOthersFillIt) {
  const test::MountedFolder mount(disk, 8 * second);
  if (!mount.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  append(recording, second);
  std::optional<DiskSpace> space(recording);
  EXPECT_NEAR(space->secondsLeft().value(), 7, 0.1);
  EXPECT_EQ(space->allocateAhead(), std::error_code());
  EXPECT_EQ(fs::file_size(recording), second);
  EXPECT_NEAR(space->secondsLeft().value(), 7, 0.1);

  fillUp();
  EXPECT_NEAR(space->secondsLeft().value(), DiskSpace::secondsAhead, 0.1);
  EXPECT_TRUE(append(recording, second));
  EXPECT_EQ(space->allocateAhead(), std::errc::no_space_on_device);
  EXPECT_TRUE(append(recording, (DiskSpace::secondsAhead - 1) * second));
  EXPECT_FALSE(append(recording, second));
}

TEST_F(SmallDisk, GetsBackWhatWasNotNeeded) {
  const test::MountedFolder mount(disk, 8 * second);
  if (!mount.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  append(recording, second);
  EXPECT_EQ(DiskSpace(recording).allocateAhead(), std::error_code());
  EXPECT_EQ(fs::file_size(recording), second);
  EXPECT_NEAR(DiskSpace(recording).secondsLeft().value(), 7, 0.1);
}

TEST(DiskSpace, EndsAtTheLimitOfFileSizes) {
  const test::TemporaryFolder folder;
  const fs::path recording = folder / "recording.wav";
  append(recording, second);
  const test::FileSizeLimit limit(7 * second);
  DiskSpace space(recording);
  EXPECT_EQ(space.allocateAhead(), std::error_code());
  EXPECT_NEAR(space.secondsLeft().value(), 6, 0.1);
  append(recording, 2 * second);
  EXPECT_EQ(space.allocateAhead(), std::errc::file_too_large);
}

TEST(DiskSpace, OfNoFileIsNoReasonToStop) {
  DiskSpace space("/nowhere/recording.wav");
  EXPECT_EQ(space.allocateAhead(), std::error_code());
  EXPECT_EQ(space.secondsLeft(), std::nullopt);
}

}  // namespace

}  // namespace quenlor::recorder
