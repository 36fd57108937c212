#include "SampleBacklog.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace quenlor {

void SampleBacklog::append(const platform::PCMBuffer& buffer) {
  const std::span<float* const> channels = buffer.floatChannelData();
  if (channels.empty()) return;
  const std::span<const float> first(channels[0], buffer.frameLength());
  const std::span<const float> second(channels.size() > 1 ? channels[1] : channels[0],
                                      buffer.frameLength());
  // left counts, so it comes last: where memory ends in between, nothing was appended.
  right.insert(right.end(), second.begin(), second.end());
  left.insert(left.end(), first.begin(), first.end());
  compactIfNeeded();
}

StereoSamples SampleBacklog::consume(std::int64_t frameCount) {
  if (frameCount < 1) return {};
  const auto wanted = static_cast<std::size_t>(frameCount);
  StereoSamples samples{std::vector<float>(wanted), std::vector<float>(wanted)};
  const std::int64_t taken = std::min(availableFrames(), frameCount);
  if (taken < 1) return samples;
  std::copy_n(left.begin() + readIndex, taken, samples.left.begin());
  std::copy_n(right.begin() + readIndex, taken, samples.right.begin());
  readIndex += taken;
  compactIfNeeded();
  return samples;
}

void SampleBacklog::removeAll() {
  left.clear();
  right.clear();
  readIndex = 0;
}

void SampleBacklog::compactIfNeeded() {
  constexpr std::int64_t longestConsumedPrefix = 4096;
  if (readIndex < 1) return;
  if (readIndex <= longestConsumedPrefix && static_cast<std::int64_t>(left.size()) > 2 * readIndex)
    return;
  left.erase(left.begin(), left.begin() + readIndex);
  right.erase(right.begin(), right.begin() + readIndex);
  readIndex = 0;
}

}  // namespace quenlor
