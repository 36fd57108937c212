#pragma once

#include "platform/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace quenlor::platform {

/// Samples in one format, in memory of its own. Not safe for concurrent use; it is handed from one
/// queue to the next through a shared pointer and used by one of them at a time.
class PCMBuffer {
  /// Only create() has one.
  struct Key {
    explicit Key() = default;
  };

 public:
  /// A buffer with room for frameCapacity frames, whose frameLength is 0 and whose byte sizes say
  /// the whole room. Nothing where the memory cannot be had, the format has no frame size, no
  /// channels or more than 1024 buffers, or a byte size does not fit 32 bits. The samples are not
  /// initialised.
  static std::shared_ptr<PCMBuffer> create(const AudioFormat& format, std::uint32_t frameCapacity);

  PCMBuffer(Key, const AudioFormat& format, std::uint32_t frameCapacity,
            std::unique_ptr<std::byte[]> storage);
  PCMBuffer(const PCMBuffer&) = delete;
  PCMBuffer& operator=(const PCMBuffer&) = delete;

  const AudioFormat& format() const { return pcmFormat; }
  std::uint32_t frameCapacity() const { return capacity; }
  std::uint32_t frameLength() const { return length; }

  /// Says how many frames are valid; at most frameCapacity. Sets the byte sizes to match.
  void setFrameLength(std::uint32_t frames);

  AudioBufferList audioBufferList() const { return buffers; }

  /// One pointer a channel; empty unless the samples are non-interleaved 32-bit floats.
  std::span<float* const> floatChannelData() const { return channels; }

 private:
  AudioFormat pcmFormat;
  std::uint32_t capacity;
  std::uint32_t length = 0;
  std::unique_ptr<std::byte[]> memory;
  std::vector<AudioBuffer> buffers;
  std::vector<float*> channels;
};

}  // namespace quenlor::platform
