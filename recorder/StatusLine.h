#pragma once

#include "recorder/LevelMeter.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace quenlor::recorder {

/// What the line shows while a recording runs.
struct RecordingStatus {
  std::chrono::seconds elapsed{};
  std::uint64_t sizeBytes = 0;
  StereoLevel levels;
};

/// One line of exactly `width` columns of ASCII: time, size, and a meter for each channel.
///
///   00:01:23  15.9 MB  L [=======   |   ] -12.3  R [=====   |     !] -20.0
///
/// A meter reaches from -60 dBFS to full scale, and marks the held peak and, at its end, that the
/// channel has clipped; the held peak in dBFS stands behind it. A narrow line has shorter meters,
/// then none.
std::string renderStatusLine(const RecordingStatus& status, std::size_t width);

}  // namespace quenlor::recorder
