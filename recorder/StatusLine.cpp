#include "recorder/StatusLine.h"

#include "recorder/Format.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace quenlor::recorder {

namespace {

constexpr double lowestDecibels = -60;
constexpr std::size_t shortestBar = 3;
/// A bar shorter than this gives way to no number.
constexpr std::size_t shortestBarWithNumber = 8;

std::size_t cellsUpTo(double amplitude, std::size_t cells) {
  const double share = std::clamp(1 - decibels(amplitude) / lowestDecibels, 0.0, 1.0);
  return static_cast<std::size_t>(std::lround(share * static_cast<double>(cells)));
}

std::string bar(const ChannelLevel& level, std::size_t cells) {
  std::string text(cells, ' ');
  std::fill_n(text.begin(), cellsUpTo(level.peak, cells), '=');
  if (const std::size_t held = cellsUpTo(level.heldPeak, cells); held > 0) text[held - 1] = '|';
  return text;
}

/// Nothing where `width` is too narrow for one.
std::string meter(char name, const ChannelLevel& level, std::size_t width) {
  constexpr std::size_t frame = 7;   // "  L [", the clip mark and "]"
  constexpr std::size_t number = 6;  // " -12.3"
  if (width < frame + shortestBar) return {};
  const bool showsNumber = width >= frame + shortestBarWithNumber + number;
  const std::size_t cells = width - frame - (showsNumber ? number : 0);
  std::ostringstream text;
  text << "  " << name << " [" << bar(level, cells) << (level.clipped ? '!' : ' ') << ']';
  if (showsNumber) text << ' ' << std::setw(5) << formatDecibels(level.heldPeak);
  return text.str();
}

}  // namespace

std::string renderStatusLine(const RecordingStatus& status, std::size_t width) {
  std::ostringstream start;
  start << formatTime(status.elapsed) << "  " << std::setw(8) << formatSize(status.sizeBytes);
  std::string line = start.str();
  const std::size_t each = (std::max(width, line.size()) - line.size()) / 2;
  line += meter('L', status.levels[0], each) + meter('R', status.levels[1], each);
  line.resize(width, ' ');
  return line;
}

}  // namespace quenlor::recorder
