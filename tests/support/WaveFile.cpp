#include "tests/support/WaveFile.h"

#include "tests/support/TemporaryFolder.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace quenlor::test {

namespace {

constexpr std::size_t headerSize = 44;

void require(bool condition, const std::filesystem::path& path, const std::string& what) {
  if (!condition) throw std::runtime_error(path.string() + ": " + what);
}

std::uint32_t littleEndian32(std::string_view bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
  }
  return value;
}

// Everything in the header but its two sizes.
void checkFormat(const std::filesystem::path& path, std::string_view header) {
  using namespace std::string_view_literals;
  constexpr std::string_view format =
      "WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xBB\0\0\x00\xEE\x02\0\x04\0\x10\0"
      "data"sv;
  require(header.substr(0, 4) == "RIFF", path, "does not begin with RIFF");
  require(header.substr(8, format.size()) == format, path, "is not 16-bit stereo at 48 kHz");
}

}  // namespace

WaveFile readWaveFile(const std::filesystem::path& path) {
  const std::string bytes = readFile(path);
  require(bytes.size() >= headerSize, path, "is shorter than a header");
  checkFormat(path, bytes);
  require(littleEndian32(bytes, 4) == bytes.size() - 8, path, "has a wrong RIFF size");
  require(littleEndian32(bytes, 40) == bytes.size() - headerSize, path, "has a wrong data size");
  require(bytes.size() % 4 == 0, path, "ends within a frame");

  WaveFile wave;
  for (std::size_t offset = headerSize; offset < bytes.size(); offset += 4) {
    const std::uint32_t frame = littleEndian32(bytes, offset);
    const auto left = static_cast<std::int16_t>(frame & 0xFFFF);
    const auto right = static_cast<std::int16_t>(frame >> 16);
    wave.samples.insert(wave.samples.end(), {left, right});
    wave.left.push_back(static_cast<float>(left) / 32767.0F);
    wave.right.push_back(static_cast<float>(right) / 32767.0F);
  }
  return wave;
}

}  // namespace quenlor::test
