#include "SampleBacklog.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

using platform::AudioFormat;
using platform::PCMBuffer;

/// A planar buffer whose channel c holds first, first + 1, ... plus 0.25 c.
std::shared_ptr<PCMBuffer> countingBuffer(std::uint32_t channels, std::uint32_t frames,
                                          float first = 1) {
  auto buffer = PCMBuffer::create(AudioFormat::float32(48'000, channels, false), frames + 1);
  buffer->setFrameLength(frames);
  float start = first;
  for (float* channel : buffer->floatChannelData()) {
    std::iota(channel, channel + frames, start);
    start += 0.25F;
  }
  return buffer;
}

TEST(SampleBacklog, AnswersOddRequests) {
  SampleBacklog backlog;
  EXPECT_EQ(backlog.consume(5).left, std::vector<float>(5));
  const auto withoutPlanes = PCMBuffer::create(AudioFormat::float32(48'000, 2, true), 8);
  withoutPlanes->setFrameLength(8);
  for (const std::int64_t stored : {0, 3}) {
    backlog.append(*countingBuffer(2, static_cast<std::uint32_t>(stored)));
    backlog.append(*withoutPlanes);
    EXPECT_TRUE(backlog.consume(0).left.empty());
    EXPECT_TRUE(backlog.consume(-7).right.empty());
    EXPECT_EQ(backlog.availableFrames(), stored);
  }
  EXPECT_EQ(backlog.consume(2).left, (std::vector<float>{1, 2}));
  backlog.removeAll();
  EXPECT_EQ(backlog.availableFrames(), 0);
  EXPECT_EQ(backlog.consume(2).left, std::vector<float>(2));
}

TEST(SampleBacklog, RemovesWhatIsConsumedInLargeSteps) {
  struct Step {
    std::int64_t taken;
    std::size_t stored;
  };
  const std::vector<std::pair<std::uint32_t, std::vector<Step>>> cases = {
      {1024, {{960, 64}}},
      {1024, {{511, 1024}, {1, 512}}},
      {10'000, {{1000, 10'000}, {4000, 5000}}},
      {10'000, {{4096, 10'000}, {1, 5903}}},
      {7000, {{3000, 7000}, {499, 7000}, {1, 3500}}},
      {100, {{100, 0}}}};
  for (const auto& [appended, steps] : cases) {
    SampleBacklog backlog;
    backlog.append(*countingBuffer(2, appended));
    for (const auto& [taken, stored] : steps) {
      backlog.consume(taken);
      EXPECT_EQ(backlog.storedSamples(), stored) << appended << " in, " << taken << " out";
    }
  }
}

/// Runs through every branch of compaction: what comes out is what went in, in order, once.
TEST(SampleBacklog, KeepsTheFirstTwoChannelsInOrderWhateverTheRunLengths) {
  std::mt19937 random(7);
  for (const auto& [channels, longestAppend] : {std::pair{1U, 3U}, {2U, 1024U}, {4U, 9000U}}) {
    const float rightOffset = channels == 1 ? 0 : 0.25F;
    SampleBacklog backlog;
    std::deque<float> model;
    float next = 1;
    for (int step = 0; step < 400; ++step) {
      const auto appended = static_cast<std::uint32_t>(random() % longestAppend);
      backlog.append(*countingBuffer(channels, appended, next));
      for (std::uint32_t i = 0; i < appended; ++i) model.push_back(next++);
      if (next > 8'000'000) next = 1;  // beyond this, floats no longer count
      const auto wanted = static_cast<std::int64_t>(random() % 5000);
      const StereoSamples samples = backlog.consume(wanted);
      ASSERT_EQ(samples.left.size(), static_cast<std::size_t>(wanted));
      for (std::size_t i = 0; i < samples.left.size(); ++i) {
        const float expected = model.empty() ? 0 : model.front();
        ASSERT_EQ(samples.left[i], expected);
        ASSERT_EQ(samples.right[i], model.empty() ? 0 : expected + rightOffset);
        if (!model.empty()) model.pop_front();
      }
      ASSERT_EQ(backlog.availableFrames(), static_cast<std::int64_t>(model.size()));
    }
  }
}

}  // namespace
}  // namespace quenlor
