#pragma once

#include "platform/common/StreamResampler.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenlor::platform {

/// A queue of frames of one or two channels, each channel in a run of its own.
class PlanarFrames {
 public:
  explicit PlanarFrames(std::uint32_t channels) : channelCount(channels) {}

  std::uint32_t channels() const { return channelCount; }
  std::size_t size() const { return planes[0].size(); }

  StreamResampler::Input data() const { return {planes[0].data(), planes[1].data()}; }

  /// Adds frames of silence, and says where these are.
  StreamResampler::Output grow(std::size_t frames) {
    const std::size_t before = size();
    resize(before + frames);
    return {planes[0].data() + before, planes[channelCount - 1].data() + before};
  }

  /// Keeps that many frames.
  void resize(std::size_t frames) {
    for (std::size_t channel = 0; channel < channelCount; ++channel) planes[channel].resize(frames);
  }

  /// Removes the oldest frames.
  void drop(std::size_t frames) {
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
      auto& plane = planes[channel];
      plane.erase(plane.begin(), plane.begin() + static_cast<std::ptrdiff_t>(frames));
    }
  }

 private:
  const std::uint32_t channelCount;
  std::array<std::vector<float>, 2> planes;
};

}  // namespace quenlor::platform
