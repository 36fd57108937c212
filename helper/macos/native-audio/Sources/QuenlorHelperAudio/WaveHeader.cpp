#include "WaveWriter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace quenlor {

namespace {

/// Writes the fields of a header one after the other.
class HeaderBuilder {
 public:
  void code(std::string_view fourCharacters) {
    for (const char c : fourCharacters) header.at(position++) = static_cast<std::byte>(c);
  }

  template <typename Unsigned>
  void littleEndian(Unsigned value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
      header.at(position++) = static_cast<std::byte>(value >> (8 * i) & 0xFF);
  }

  WaveWriter::Header header{};

 private:
  std::size_t position = 0;
};

template <typename Unsigned>
Unsigned narrowed(std::uint64_t value) {
  if (value > std::numeric_limits<Unsigned>::max())
    throw std::out_of_range("A WAV header field does not fit its width.");
  return static_cast<Unsigned>(value);
}

std::uint32_t saturated(std::uint64_t value) {
  constexpr std::uint64_t highest = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(value, highest));
}

std::uint32_t wholeRate(double sampleRate) {
  if (!(sampleRate > -1 && sampleRate < 4'294'967'296.0))
    throw std::out_of_range("A WAV header cannot hold this sample rate.");
  return static_cast<std::uint32_t>(std::trunc(sampleRate));
}

}  // namespace

WaveWriter::Header WaveWriter::makeHeader(std::uint64_t dataByteCount, double sampleRate,
                                          std::uint16_t channelCount, std::uint16_t bitsPerSample) {
  const std::uint32_t rate = wholeRate(sampleRate);
  const auto samplesPerSecond = narrowed<std::uint32_t>(std::uint64_t{rate} * channelCount);
  const auto bitsPerSecond =
      narrowed<std::uint32_t>(std::uint64_t{samplesPerSecond} * bitsPerSample);
  const auto blockAlign =
      narrowed<std::uint16_t>(std::uint64_t{channelCount} * (bitsPerSample / 8U));
  if (dataByteCount > std::numeric_limits<std::uint64_t>::max() - headerSize)
    throw std::out_of_range("A file cannot hold this many bytes.");

  HeaderBuilder builder;
  builder.code("RIFF");
  builder.littleEndian(saturated(dataByteCount + headerSize - 8));
  builder.code("WAVE");
  builder.code("fmt ");
  builder.littleEndian(std::uint32_t{16});
  builder.littleEndian(std::uint16_t{1});  // integer PCM
  builder.littleEndian(channelCount);
  builder.littleEndian(rate);
  builder.littleEndian(bitsPerSecond / 8);
  builder.littleEndian(blockAlign);
  builder.littleEndian(bitsPerSample);
  builder.code("data");
  builder.littleEndian(saturated(dataByteCount));
  return builder.header;
}

}  // namespace quenlor
