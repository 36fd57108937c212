#include "recorder/RecordingWatch.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quenlor::recorder {

namespace {

using namespace std::chrono_literals;

/// The mixer writes every 20 ms, silence included.
constexpr auto longestRegularPause = 3s;

/// 5 s of recording.
constexpr std::uint64_t longestRegularSilence =
    5 * static_cast<std::uint64_t>(WaveWriter::targetSampleRate) * WaveWriter::bytesPerFrame;

constexpr double fewSecondsLeft = 60;

}  // namespace

std::vector<std::string> RecordingWatch::look(Clock::time_point now, const LevelMeter& meter,
                                              std::optional<double> secondsLeft) {
  std::vector<std::string> notices;
  for (std::optional<std::string>& notice :
       std::array{lookAtGrowth(now, meter), lookForSound(meter), lookAtRoom(secondsLeft)})
    if (notice) notices.push_back(std::move(*notice));
  return notices;
}

std::optional<std::string> RecordingWatch::lookAtGrowth(Clock::time_point now,
                                                        const LevelMeter& meter) {
  if (meter.sizeBytes() != grownTo || !meter.hasFile()) {
    grownTo = meter.sizeBytes();
    grownAt = now;
    if (!isStuck) return std::nullopt;
    isStuck = false;
    return "The file grows again.";
  }
  if (isStuck || now - grownAt < longestRegularPause) return std::nullopt;
  isStuck = true;
  return "The file has not grown for 3 s: the disk or the sidecar hangs.";
}

std::optional<std::string> RecordingWatch::lookForSound(const LevelMeter& meter) {
  const bool isSilent = std::ranges::max(meter.highestPeaks()) == 0;
  if (isSilenceReported || !isSilent || meter.sizeBytes() < longestRegularSilence)
    return std::nullopt;
  isSilenceReported = true;
  return "Both sources are silent: nothing is heard yet. Is one of them muted?";
}

std::optional<std::string> RecordingWatch::lookAtRoom(std::optional<double> secondsLeft) {
  if (isRoomReported || !secondsLeft || *secondsLeft >= fewSecondsLeft) return std::nullopt;
  isRoomReported = true;
  return "The disk is almost full. There is room for " +
         std::to_string(static_cast<int>(*secondsLeft)) + " s more.";
}

}  // namespace quenlor::recorder
