#pragma once

#include "platform/virtual/VirtualSettings.h"

#include <cstdint>
#include <vector>

namespace quenlor::platform::virtualhost {

/// The signal of one virtual device, at any position of its stream.
class ToneSource {
 public:
  explicit ToneSource(const DeviceSettings& device);

  /// The tone at frame n of the stream.
  float sample(std::uint64_t n) const { return period[n % period.size()]; }

  /// Writes the frames from firstFrame on into buffers laid out in the device's format, as many as
  /// the byte size of each says: the tone on its channels and 0 elsewhere, or 0 throughout.
  void fill(AudioBufferList buffers, std::uint64_t firstFrame, bool silent) const;

 private:
  DeviceSettings settings;
  /// One period in whole frames: after sampleRate / gcd(toneFrequency, sampleRate) frames the tone
  /// is back at phase 0 exactly.
  std::vector<float> period;
};

}  // namespace quenlor::platform::virtualhost
