#pragma once

#include "FileHandle.h"

#include <array>
#include <cstdint>
#include <filesystem>

namespace quenlor::recorder {

/// How loud one channel is. Peaks are amplitudes from 0 to 1.
struct ChannelLevel {
  /// The peak of what the latest reading found.
  double peak = 0;
  /// The highest peak, until LevelMeter::holdFrames have passed without a higher one.
  double heldPeak = 0;
  /// Whether any sample so far was at the end of the range.
  bool clipped = false;

  bool operator==(const ChannelLevel&) const = default;
};

using StereoLevel = std::array<ChannelLevel, 2>;

/// Measures a recording while it grows.
class LevelMeter {
 public:
  /// 1.5 s of recording.
  static constexpr std::uint64_t holdFrames = 72'000;

  /// A recording that cannot be opened stays silent here: its levels are no reason to end it.
  explicit LevelMeter(const std::filesystem::path& recording);

  /// Reads the frames that were added since the last call; levels stay as they are where there is
  /// none.
  void readNewFrames();

  /// Whether the recording could be opened.
  bool hasFile() const { return file.isOpen(); }
  /// Left, right.
  const StereoLevel& levels() const { return channels; }
  /// The highest peak of each channel so far; 0 where all of it was digital silence.
  const std::array<double, 2>& highestPeaks() const { return highest; }
  /// Of the file as far as it was read, in bytes.
  std::uint64_t sizeBytes() const { return position; }

 private:
  void update(ChannelLevel& channel, std::uint64_t& since, int magnitude) const;

  FileHandle file;
  std::uint64_t position;
  StereoLevel channels;
  std::array<double, 2> highest{};
  /// The end in bytes of the reading that each held peak is from.
  std::array<std::uint64_t, 2> heldSince{};
};

}  // namespace quenlor::recorder
