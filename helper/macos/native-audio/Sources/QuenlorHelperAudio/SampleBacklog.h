#pragma once

#include "platform/PCMBuffer.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenlor {

/// One run of stereo samples, both channels equally long.
struct StereoSamples {
  std::vector<float> left;
  std::vector<float> right;
};

/// FIFO of one source's converted samples. Not thread-safe: only the mix queue uses it.
///
/// consume() only advances readIndex. Consumed samples are removed when they are more than 4096 or
/// at least half of all samples, so that the cost of moving the rest is amortised.
class SampleBacklog {
 public:
  /// Stores the buffer's frames: channels 0 and 1, or channel 0 twice if there is only one. A
  /// buffer that does not hold non-interleaved floats is skipped.
  void append(const platform::PCMBuffer& buffer);

  /// Removes and returns exactly frameCount frames, padded with silence at the end; none if
  /// frameCount is below 1.
  StereoSamples consume(std::int64_t frameCount);

  std::int64_t availableFrames() const {
    return static_cast<std::int64_t>(left.size()) - readIndex;
  }

  /// Samples of a channel that are held in memory, consumed ones included.
  std::size_t storedSamples() const { return left.size(); }

  /// Removes all samples.
  void removeAll();

 private:
  void compactIfNeeded();

  /// Samples in order of arrival, consumed ones that were not removed yet included.
  std::vector<float> left;
  std::vector<float> right;
  /// How many of them are consumed.
  std::int64_t readIndex = 0;
};

}  // namespace quenlor
