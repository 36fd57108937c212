#pragma once

#include "platform/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace quenlor::platform {

/// Samples in one format, in memory of its own. Not thread-safe: queues pass it on by shared
/// pointer, and one of them uses it at a time.
class PCMBuffer {
  /// Only create() can make one.
  struct Key {
    explicit Key() = default;
  };

 public:
  /// Returns a buffer for up to frameCapacity frames. Its frameLength is 0, its byte sizes are
  /// those of the full capacity, and its samples are not initialised. Returns nullptr if memory
  /// runs out, if the format has no frame size, no channels or more than 1024 buffers, or if a byte
  /// size does not fit in 32 bits.
  static std::shared_ptr<PCMBuffer> create(const AudioFormat& format, std::uint32_t frameCapacity);

  PCMBuffer(Key, const AudioFormat& format, std::uint32_t frameCapacity,
            std::unique_ptr<std::byte[]> storage);
  PCMBuffer(const PCMBuffer&) = delete;
  PCMBuffer& operator=(const PCMBuffer&) = delete;

  const AudioFormat& format() const { return pcmFormat; }
  std::uint32_t frameCapacity() const { return capacity; }
  std::uint32_t frameLength() const { return length; }

  /// Sets the number of valid frames, at most frameCapacity, and the byte sizes to match.
  void setFrameLength(std::uint32_t frames);

  AudioBufferList audioBufferList() const { return buffers; }

  /// One pointer per channel; empty unless the samples are non-interleaved 32-bit floats.
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
