#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace quenlor::test {

/// The contents of a finished recording.
struct WaveFile {
  /// Left and right in turn, as stored.
  std::vector<std::int16_t> samples;
  /// The same by channel, divided by 32 767, the factor that recordings are stored with.
  std::vector<float> left;
  std::vector<float> right;

  /// What the left channel has that the right one has not.
  [[nodiscard]] std::vector<float> leftAlone() const;
  [[nodiscard]] double durationSeconds() const { return static_cast<double>(left.size()) / 48000; }
};

/// Reads a recording and holds it to its form: a header of 44 bytes for 16-bit stereo at 48 kHz
/// whose sizes agree with the length of the file, and whole frames. Throws std::runtime_error that
/// says what is off.
[[nodiscard]] WaveFile readWaveFile(const std::filesystem::path& path);

}  // namespace quenlor::test
