// Levels of a file that grows.

#include "recorder/LevelMeter.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace quenlor::recorder {

namespace {

class Meter : public testing::Test {
 protected:
  Meter() { append(std::string(44, '\xFF')); }

  void append(const std::string& bytes) { std::ofstream(file, std::ios::app) << bytes; }
  void appendFrames(std::size_t count, std::int16_t left, std::int16_t right) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
      for (const int sample : {left, right})
        bytes.append({static_cast<char>(sample & 0xFF), static_cast<char>(sample >> 8)});
    append(bytes);
  }

  test::TemporaryFolder folder;
  std::filesystem::path file = folder / "growing.wav";
};

TEST_F(Meter, TellsLevelsByChannelAndReading) {
  LevelMeter meter(file);
  meter.readNewFrames();
  EXPECT_EQ(meter.levels(), StereoLevel{});
  EXPECT_EQ(meter.sizeBytes(), 44U);

  appendFrames(40'000, 100, 0);  // More than is read at once.
  appendFrames(1, -16'384, 8'192);
  meter.readNewFrames();
  EXPECT_EQ(meter.levels(), (StereoLevel{{{0.5, 0.5, false}, {0.25, 0.25, false}}}));
  EXPECT_EQ(meter.sizeBytes(), std::filesystem::file_size(file));

  meter.readNewFrames();
  EXPECT_EQ(meter.levels()[0].peak, 0.5);
  appendFrames(1, 0, 16'384);
  meter.readNewFrames();
  EXPECT_EQ(meter.levels(), (StereoLevel{{{0, 0.5, false}, {0.5, 0.5, false}}}));
}

TEST_F(Meter, HoldsAPeakForItsTime) {
  LevelMeter meter(file);
  appendFrames(1, 16'384, 0);
  meter.readNewFrames();
  appendFrames(LevelMeter::holdFrames, 8'192, 0);
  meter.readNewFrames();
  EXPECT_EQ(meter.levels()[0].heldPeak, 0.5);
  appendFrames(1, 8'192, 0);
  meter.readNewFrames();
  EXPECT_EQ(meter.levels()[0].heldPeak, 0.25);
}

TEST_F(Meter, MarksAClippedChannelForGood) {
  for (const std::int16_t sample : {std::int16_t{32'767}, std::int16_t{-32'768}}) {
    LevelMeter meter(file);
    appendFrames(1, 32'766, sample);
    appendFrames(1, 0, 0);
    meter.readNewFrames();
    EXPECT_FALSE(meter.levels()[0].clipped);
    EXPECT_TRUE(meter.levels()[1].clipped);
    appendFrames(LevelMeter::holdFrames + 1, 0, 0);
    meter.readNewFrames();
    EXPECT_TRUE(meter.levels()[1].clipped);
    std::filesystem::resize_file(file, 44);
  }
}

TEST_F(Meter, WaitsForTheRestOfAFrame) {
  LevelMeter meter(file);
  append(std::string("\x00\x00\x00", 3));
  meter.readNewFrames();
  EXPECT_EQ(meter.sizeBytes(), 44U);
  append("\x40");
  meter.readNewFrames();
  EXPECT_EQ(meter.sizeBytes(), 48U);
  EXPECT_EQ(meter.levels()[1].peak, 0.5);
}

TEST_F(Meter, IsSilentWithoutAFile) {
  LevelMeter meter(folder / "none.wav");
  meter.readNewFrames();
  EXPECT_EQ(meter.levels(), StereoLevel{});
}

}  // namespace

}  // namespace quenlor::recorder
