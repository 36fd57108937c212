#include "platform/AudioFormat.h"

#include <cmath>

namespace quenlor::platform {

AudioFormat AudioFormat::float32(double sampleRate, std::uint32_t channelCount, bool interleaved) {
  const std::uint32_t bytesPerFrame = interleaved ? 4 * channelCount : 4;
  return AudioFormat({
      .mSampleRate = sampleRate,
      .mFormatID = kAudioFormatLinearPCM,
      .mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                      (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved),
      .mBytesPerPacket = bytesPerFrame,
      .mFramesPerPacket = 1,
      .mBytesPerFrame = bytesPerFrame,
      .mChannelsPerFrame = channelCount,
      .mBitsPerChannel = 32,
      .mReserved = 0,
  });
}

std::optional<AudioFormat> AudioFormat::fromStreamDescription(
    const AudioStreamBasicDescription& description) {
  if (description.mFormatID == 0 || description.mChannelsPerFrame == 0) return std::nullopt;
  if (!std::isfinite(description.mSampleRate) || description.mSampleRate <= 0) return std::nullopt;
  return AudioFormat(description);
}

bool AudioFormat::isInterleaved() const {
  return (description.mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0;
}

bool AudioFormat::isFloat32() const {
  constexpr std::uint32_t kinds = kAudioFormatFlagIsFloat | kAudioFormatFlagIsBigEndian;
  return description.mFormatID == kAudioFormatLinearPCM && description.mBitsPerChannel == 32 &&
         (description.mFormatFlags & kinds) == kAudioFormatFlagIsFloat;
}

}  // namespace quenlor::platform
