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

/// First-in, first-out store of one source's converted samples. Not safe for concurrent use: only
/// the mix queue touches it.
///
/// Taking frames out only moves readIndex on. Consumed samples are removed when they are more than
/// 4096 or at least half of what is stored, so that the cost of shifting the rest is spread over
/// many calls.
class SampleBacklog {
 public:
  /// Stores the buffer's frames: channels 0 and 1, or channel 0 twice where there is one only. A
  /// buffer of anything but non-interleaved floats is skipped.
  void append(const platform::PCMBuffer& buffer);

  /// Takes exactly frameCount frames out, filled up with silence at the end; none where frameCount
  /// is below 1.
  StereoSamples consume(std::int64_t frameCount);

  std::int64_t availableFrames() const {
    return static_cast<std::int64_t>(left.size()) - readIndex;
  }

  /// Samples of a channel that are held in memory, consumed ones included.
  std::size_t storedSamples() const { return left.size(); }

  /// Forgets everything stored.
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
