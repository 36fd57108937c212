#include "SampleBacklog.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace quenlor {

namespace {

/// Copies the samples taken and pads them with silence up to frameCount.
std::vector<float> paddedCopy(std::vector<float>::const_iterator samples, std::int64_t taken,
                              std::int64_t frameCount) {
  std::vector<float> copy;
  copy.reserve(static_cast<std::size_t>(frameCount));
  copy.assign(samples, samples + taken);
  copy.resize(static_cast<std::size_t>(frameCount));
  return copy;
}

}  // namespace

void SampleBacklog::append(const platform::PCMBuffer& buffer) {
  const std::span<float* const> channels = buffer.floatChannelData();
  if (channels.empty()) return;
  const std::span<const float> first(channels[0], buffer.frameLength());
  const std::span<const float> second(channels.size() > 1 ? channels[1] : channels[0],
                                      buffer.frameLength());
  // left last, since its length counts: if it cannot be allocated, nothing was appended.
  right.insert(right.end(), second.begin(), second.end());
  left.insert(left.end(), first.begin(), first.end());
  compactIfNeeded();
}

StereoSamples SampleBacklog::consume(std::int64_t frameCount) {
  if (frameCount < 1) return {};
  const std::int64_t taken = std::min(availableFrames(), frameCount);
  const auto next = [&](const std::vector<float>& channel) {
    return paddedCopy(channel.begin() + readIndex, taken, frameCount);
  };
  StereoSamples samples{next(left), next(right)};
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
