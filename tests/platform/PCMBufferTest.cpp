#include "platform/PCMBuffer.h"

#include <cmath>
#include <gtest/gtest.h>

namespace quenlor::platform {
namespace {

TEST(AudioFormat, RefusesDescriptionsThatCannotBeRepresented) {
  const auto valid = AudioFormat::float32(48000, 2, true).streamDescription();
  EXPECT_TRUE(AudioFormat::fromStreamDescription(valid));
  for (const double rate : {0.0, -44100.0, double{NAN}, double{INFINITY}}) {
    auto description = valid;
    description.mSampleRate = rate;
    EXPECT_FALSE(AudioFormat::fromStreamDescription(description)) << rate;
  }
  auto noFormat = valid;
  noFormat.mFormatID = 0;
  EXPECT_FALSE(AudioFormat::fromStreamDescription(noFormat));
  EXPECT_FALSE(
      AudioFormat::fromStreamDescription(AudioFormat::float32(48000, 0, true).streamDescription()));
}

TEST(PCMBuffer, ClampsItsFrameLengthAndFitsTheByteSizes) {
  const auto buffer = PCMBuffer::create(AudioFormat::float32(48000, 2, false), 10);
  EXPECT_EQ(buffer->frameLength(), 0U);
  for (const auto& [asked, got] : {std::pair{7U, 7U}, {0U, 0U}, {11U, 10U}, {~0U, 10U}}) {
    buffer->setFrameLength(asked);
    EXPECT_EQ(buffer->frameLength(), got);
    for (const AudioBuffer& part : buffer->audioBufferList())
      EXPECT_EQ(part.mDataByteSize, 4 * got);
  }
}

TEST(PCMBuffer, RefusesSizesThatCannotBe) {
  auto noFrameSize = AudioFormat::float32(48000, 2, true).streamDescription();
  noFrameSize.mBytesPerFrame = 0;
  EXPECT_EQ(PCMBuffer::create(*AudioFormat::fromStreamDescription(noFrameSize), 1), nullptr);
  EXPECT_EQ(PCMBuffer::create(AudioFormat::float32(48000, 0, false), 1), nullptr);
  // 2^32 bytes; one frame less would fit, and is not asked for to spare the memory.
  EXPECT_EQ(PCMBuffer::create(AudioFormat::float32(48000, 2, true), 1U << 29), nullptr);
  EXPECT_EQ(PCMBuffer::create(AudioFormat::float32(48000, 1, true), ~0U), nullptr);
  EXPECT_EQ(PCMBuffer::create(AudioFormat::float32(48000, 20'000'000, false), 1), nullptr);
}

}  // namespace
}  // namespace quenlor::platform
