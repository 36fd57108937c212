#include "platform/common/SampleReader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

namespace quenlor::platform {

namespace {

static_assert(std::endian::native == std::endian::little);

// The sample formats: the size of a sample in bytes, and its conversion to float.

struct Float32 {
  static constexpr std::size_t size = 4;
  static float decode(const std::byte* bytes) {
    float value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }
};

struct Float64 {
  static constexpr std::size_t size = 8;
  static float decode(const std::byte* bytes) {
    double value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<float>(value);
  }
};

struct Int16 {
  static constexpr std::size_t size = 2;
  static float decode(const std::byte* bytes) {
    std::int16_t value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<float>(value) * 0x1p-15F;
  }
};

struct Int24 {
  static constexpr std::size_t size = 3;
  static float decode(const std::byte* bytes) {
    // Into the upper three bytes, for the sign.
    std::int32_t value = 0;
    std::memcpy(reinterpret_cast<std::byte*>(&value) + 1, bytes, 3);
    return static_cast<float>(value) * 0x1p-31F;
  }
};

struct Int32 {
  static constexpr std::size_t size = 4;
  static float decode(const std::byte* bytes) {
    std::int32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<float>(value) * 0x1p-31F;
  }
};

template <typename Sample>
void decodeAll(const std::byte* first, std::size_t stride, float* target, std::size_t count) {
  const auto decode = [=](auto distance) {
    for (std::size_t i = 0; i < count; ++i) target[i] = Sample::decode(first + i * distance);
  };
  // The usual stride as a constant, so that the compiler can vectorise the loop.
  constexpr std::integral_constant<std::size_t, 2 * Sample::size> stereo;
  if (stride == stereo)
    decode(stereo);
  else
    decode(stride);
}

}  // namespace

SampleReader::Decoder SampleReader::decoderFor(const AudioStreamBasicDescription& description) {
  constexpr std::uint32_t kinds =
      kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian;
  const std::uint32_t kind = description.mFormatFlags & kinds;
  const std::uint32_t bits = description.mBitsPerChannel;
  if (kind == kAudioFormatFlagIsFloat && bits == 32) return decodeAll<Float32>;
  if (kind == kAudioFormatFlagIsFloat && bits == 64) return decodeAll<Float64>;
  if (kind == kAudioFormatFlagIsSignedInteger && bits == 16) return decodeAll<Int16>;
  if (kind == kAudioFormatFlagIsSignedInteger && bits == 24) return decodeAll<Int24>;
  if (kind == kAudioFormatFlagIsSignedInteger && bits == 32) return decodeAll<Int32>;
  return nullptr;
}

std::optional<SampleReader> SampleReader::forFormat(const AudioFormat& format) {
  const AudioStreamBasicDescription& description = format.streamDescription();
  const Decoder decoder = decoderFor(description);
  if (description.mFormatID != kAudioFormatLinearPCM || decoder == nullptr) return std::nullopt;
  // Any other frame size means padding or a wrong number of channels.
  const std::uint64_t samplesPerFrame = format.isInterleaved() ? format.channelCount() : 1;
  if (format.channelCount() == 0) return std::nullopt;
  if (description.mBytesPerFrame != samplesPerFrame * description.mBitsPerChannel / 8)
    return std::nullopt;
  return SampleReader(format, decoder);
}

SampleReader::SampleReader(const AudioFormat& format, Decoder sampleDecoder)
    : decoder(sampleDecoder),
      channels(std::min(format.channelCount(), 2U)),
      interleaved(format.isInterleaved()),
      bytesPerFrame(format.streamDescription().mBytesPerFrame),
      bytesPerSample(format.streamDescription().mBitsPerChannel / 8) {}

SampleReader::Channels SampleReader::read(const PCMBuffer& buffer) {
  Channels result{};
  const auto planes = buffer.floatChannelData();
  if (!planes.empty()) {
    std::copy_n(planes.begin(), channels, result.begin());
    return result;
  }
  const std::size_t frames = buffer.frameLength();
  if (memory.size() < frames * channels) memory.resize(frames * channels);
  for (std::size_t channel = 0; channel < channels; ++channel) {
    const AudioBuffer& source = buffer.audioBufferList()[interleaved ? 0 : channel];
    const std::size_t offset = interleaved ? channel * bytesPerSample : 0;
    float* const target = memory.data() + channel * frames;
    decoder(static_cast<const std::byte*>(source.mData) + offset, bytesPerFrame, target, frames);
    result[channel] = target;
  }
  return result;
}

}  // namespace quenlor::platform
