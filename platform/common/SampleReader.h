#pragma once

#include "platform/AudioFormat.h"
#include "platform/PCMBuffer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace quenlor::platform {

/// Reads buffers of one linear PCM format as planar float, mono or stereo: of more than two
/// channels the first two are taken, the others ignored.
///
/// Supported are 32- and 64-bit floats and signed integers of 16, 24 and 32 bits, interleaved or
/// not, tightly packed and little endian. Not supported are unsigned and 8-bit integers, samples
/// aligned in a wider container (24 bits in 4 bytes), big endian, and anything compressed.
///
/// Full scale of an integer is 1.0; floats are taken as they are, beyond 1.0 as well. Used by one
/// thread at a time.
class SampleReader {
 public:
  /// One pointer per channel; a mono stream has only the first.
  using Channels = std::array<const float*, 2>;

  /// Returns nullopt if the format is not supported.
  static std::optional<SampleReader> forFormat(const AudioFormat& format);

  /// The number of channels read: 1 or 2.
  std::uint32_t channelCount() const { return channels; }

  /// Returns the valid frames of a buffer, which must have this reader's format. The pointers are
  /// into the buffer if it is planar float already, else into memory that the next call reuses.
  Channels read(const PCMBuffer& buffer);

 private:
  // Reads count samples that lie stride bytes apart.
  using Decoder = void (*)(const std::byte* first, std::size_t stride, float* target,
                           std::size_t count);

  SampleReader(const AudioFormat& format, Decoder sampleDecoder);
  static Decoder decoderFor(const AudioStreamBasicDescription& description);

  Decoder decoder;
  std::uint32_t channels;
  bool interleaved;
  std::size_t bytesPerFrame;
  std::size_t bytesPerSample;
  std::vector<float> memory;
};

}  // namespace quenlor::platform
