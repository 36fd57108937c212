#pragma once

#include "platform/AudioTypes.h"

#include <cstdint>
#include <optional>

namespace quenlor::platform {

/// A stream description that buffers can be made for. An immutable value.
class AudioFormat {
 public:
  /// 32-bit float PCM in the machine's byte order. With 0 channels it means "no input".
  static AudioFormat float32(double sampleRate, std::uint32_t channelCount, bool interleaved);

  /// Returns nullopt for a description without a format ID or channels, or with a rate that is not
  /// a positive number.
  static std::optional<AudioFormat> fromStreamDescription(
      const AudioStreamBasicDescription& description);

  const AudioStreamBasicDescription& streamDescription() const { return description; }
  double sampleRate() const { return description.mSampleRate; }
  std::uint32_t channelCount() const { return description.mChannelsPerFrame; }
  bool isInterleaved() const;
  bool isFloat32() const;

  /// Number of buffers that hold one run of samples: one if interleaved, else one per channel.
  std::uint32_t bufferCount() const { return isInterleaved() ? 1 : channelCount(); }

  bool operator==(const AudioFormat&) const = default;

 private:
  explicit AudioFormat(const AudioStreamBasicDescription& valid) : description(valid) {}

  AudioStreamBasicDescription description;
};

}  // namespace quenlor::platform
