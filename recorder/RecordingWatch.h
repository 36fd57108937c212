#pragma once

#include "WaveWriter.h"
#include "recorder/LevelMeter.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::recorder {

/// Notices what is wrong with a recording that runs, once each time: its file does not grow, both
/// sources are digitally silent from the start, or the disk will soon be full.
class RecordingWatch {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RecordingWatch(Clock::time_point start) : grownAt(start) {}

  /// Gives what is to be reported now. meter has read the file's new frames; secondsLeft is what
  /// there is room for on the disk, if that is known.
  std::vector<std::string> look(Clock::time_point now, const LevelMeter& meter,
                                std::optional<double> secondsLeft);

 private:
  std::optional<std::string> lookAtGrowth(Clock::time_point now, const LevelMeter& meter);
  std::optional<std::string> lookForSound(const LevelMeter& meter);
  std::optional<std::string> lookAtRoom(std::optional<double> secondsLeft);

  Clock::time_point grownAt;
  std::uint64_t grownTo = WaveWriter::headerSize;
  bool isStuck = false;
  bool isSilenceReported = false;
  bool isRoomReported = false;
};

}  // namespace quenlor::recorder
