#include "recorder/Format.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <iomanip>
#include <limits>
#include <sstream>

namespace quenlor::recorder {

namespace {

std::string withOneDecimal(double value) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << value;
  return text.str();
}

}  // namespace

std::string formatTime(std::chrono::seconds time) {
  const std::chrono::hh_mm_ss parts(time);
  std::ostringstream text;
  text << std::setfill('0') << std::setw(2) << parts.hours().count() << ':' << std::setw(2)
       << parts.minutes().count() << ':' << std::setw(2) << parts.seconds().count();
  return text.str();
}

std::string formatSize(std::uint64_t bytes) {
  constexpr std::array units{"kB", "MB", "GB", "TB"};
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < units.size(); ++unit) size /= 1000;
  return withOneDecimal(size) + ' ' + units.at(unit);
}

double decibels(double amplitude) {
  return amplitude > 0 ? 20 * std::log10(amplitude) : -std::numeric_limits<double>::infinity();
}

std::string formatDecibels(double amplitude) {
  return withOneDecimal(decibels(amplitude));
}

std::string printable(std::string_view text) {
  const auto byteAt = [text](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  std::string clean;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isASCIIControl = byteAt(i) < 0x20 || byteAt(i) == 0x7F;
    // U+0080 to U+009F: terminals take them for the start of an escape sequence as well.
    const bool isTwoByteControl =
        byteAt(i) == 0xC2 && byteAt(i + 1) >= 0x80 && byteAt(i + 1) < 0xA0;
    clean += isASCIIControl || isTwoByteControl ? '?' : text[i];
    if (isTwoByteControl) ++i;
  }
  return clean;
}

}  // namespace quenlor::recorder
