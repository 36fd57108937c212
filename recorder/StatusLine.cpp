#include "recorder/StatusLine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

namespace quenlor::recorder {

namespace {

constexpr double lowestDecibels = -60;
constexpr std::size_t shortestBar = 3;
/// A bar shorter than this gives way to no number.
constexpr std::size_t shortestBarWithNumber = 8;

double decibels(double amplitude) {
  return amplitude > 0 ? 20 * std::log10(amplitude) : -std::numeric_limits<double>::infinity();
}

std::string clockTime(std::chrono::seconds elapsed) {
  const std::chrono::hh_mm_ss time(elapsed);
  std::ostringstream text;
  text << std::setfill('0') << std::setw(2) << time.hours().count() << ':' << std::setw(2)
       << time.minutes().count() << ':' << std::setw(2) << time.seconds().count();
  return text.str();
}

std::string fileSize(std::uint64_t bytes) {
  constexpr std::array units{"kB", "MB", "GB", "TB"};
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < units.size(); ++unit) size /= 1000;
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << std::setw(5) << size << ' ' << units.at(unit);
  return text.str();
}

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
  if (showsNumber)
    text << ' ' << std::fixed << std::setprecision(1) << std::setw(5) << decibels(level.heldPeak);
  return text.str();
}

}  // namespace

std::string renderStatusLine(const RecordingStatus& status, std::size_t width) {
  std::string line = clockTime(status.elapsed) + "  " + fileSize(status.sizeBytes);
  const std::size_t each = (std::max(width, line.size()) - line.size()) / 2;
  line += meter('L', status.levels[0], each) + meter('R', status.levels[1], each);
  line.resize(width, ' ');
  return line;
}

}  // namespace quenlor::recorder
