// What is told of a recording that runs, as time and the file go on.

#include "recorder/RecordingWatch.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::recorder {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Watch : public testing::Test {
 protected:
  using Told = std::vector<std::string>;

  /// Seconds later, after the file has grown by so many seconds of one sample value.
  Told lookAfter(std::chrono::seconds passed, std::size_t recorded, char sample = 0,
                 std::optional<double> secondsLeft = std::nullopt) {
    now += passed;
    std::ofstream(file, std::ios::app) << std::string(recorded * 192'000, sample);
    meter.readNewFrames();
    return watch.look(now, meter, secondsLeft);
  }

  static std::filesystem::path makeEmptyRecording(const std::filesystem::path& path) {
    test::writeFile(path, std::string(44, '\0'));
    return path;
  }

  test::TemporaryFolder folder;
  const std::filesystem::path file = makeEmptyRecording(folder / "growing.wav");
  RecordingWatch::Clock::time_point now{1h};
  LevelMeter meter{file};
  RecordingWatch watch{now};
};

TEST_F(Watch, TellsOnceThatTheFileDoesNotGrow) {
  const auto stuck = ElementsAre(HasSubstr("has not grown"));
  EXPECT_THAT(lookAfter(2s, 0), IsEmpty());
  EXPECT_THAT(lookAfter(1s, 0), stuck);
  EXPECT_THAT(lookAfter(1h, 0), IsEmpty());
  EXPECT_THAT(lookAfter(1s, 1, 1), ElementsAre("The file grows again."));
  EXPECT_THAT(lookAfter(1s, 1, 1), IsEmpty());
  EXPECT_THAT(lookAfter(1h, 1, 1), IsEmpty()) << "it was this program that did not run";
  EXPECT_THAT(lookAfter(3s, 0), stuck);
}

TEST_F(Watch, TellsOnceThatNothingIsHeardFromTheStart) {
  EXPECT_THAT(lookAfter(4s, 4), IsEmpty());
  EXPECT_THAT(lookAfter(1s, 1), ElementsAre(HasSubstr("nothing is heard yet")));
  EXPECT_THAT(lookAfter(9s, 9), IsEmpty());
}

TEST_F(Watch, SaysNothingOfSilenceAfterASound) {
  EXPECT_THAT(lookAfter(1s, 1, 1), IsEmpty());
  EXPECT_THAT(lookAfter(9s, 9), IsEmpty());
}

TEST_F(Watch, TellsOnceThatTheDiskIsAlmostFull) {
  EXPECT_THAT(lookAfter(1s, 1, 1, 60), IsEmpty());
  EXPECT_THAT(lookAfter(1s, 1, 1, 59.9), ElementsAre(HasSubstr("room for 59 s more")));
  EXPECT_THAT(lookAfter(1s, 1, 1, 58), IsEmpty());
}

}  // namespace

}  // namespace quenlor::recorder
