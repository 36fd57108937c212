#include "SidecarControlProtocol.h"

#include "JSONCoding.h"
#include "SidecarRuntimeError.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace quenlor {

namespace {

constexpr std::string_view blankBytes = "\t\n\r ";

/// The UTF-8 forms of the Unicode white space and newline characters: general category Z, U+0009 to
/// U+000D, and U+0085.
constexpr std::array<std::string_view, 25> whitespaceAndNewlines = {
    "\t",           "\n",           "\v",           "\f",           "\r",           " ",
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81", "\xE2\x80\x82",
    "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86", "\xE2\x80\x87", "\xE2\x80\x88",
    "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F",
    "\xE3\x80\x80"};

/// Removes Unicode white space from both ends. It removes whole characters, so malformed UTF-8
/// stays malformed and never becomes a word of ASCII letters.
std::string_view trimmedOfUnicodeWhitespace(std::string_view text) {
  const auto spaceWhere = [](auto isThere) -> std::size_t {
    const auto found = std::ranges::find_if(whitespaceAndNewlines, isThere);
    return found == whitespaceAndNewlines.end() ? 0 : found->size();
  };
  const auto atFront = [&](std::string_view space) { return text.starts_with(space); };
  const auto atBack = [&](std::string_view space) { return text.ends_with(space); };
  while (const std::size_t length = spaceWhere(atFront)) text.remove_prefix(length);
  while (const std::size_t length = spaceWhere(atBack)) text.remove_suffix(length);
  return text;
}

/// Whether text is the word stop in any letter case. No letter outside ASCII has s, t, o or p as
/// its lower case, so ASCII is all that has to be folded.
bool isStop(std::string_view text) {
  const auto lowerCase = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::ranges::equal(text, std::string_view("stop"), {}, lowerCase);
}

}  // namespace

StopSignal StopSignal::decode(std::string_view json) {
  return {.command = JSONObject(json).string("command")};
}

std::string_view SidecarControlProtocol::trimmed(std::string_view frame) {
  const std::size_t start = frame.find_first_not_of(blankBytes);
  if (start == std::string_view::npos) return {};
  return frame.substr(start, frame.find_last_not_of(blankBytes) + 1 - start);
}

StartRequest SidecarControlProtocol::decodeStartRequestFrame(std::string_view frame) {
  const std::string_view text = trimmed(frame);
  if (text.empty()) throw SidecarRuntimeError::emptyStartRequest();
  return StartRequest::decode(text);
}

bool SidecarControlProtocol::parseStopFrame(std::string_view frame) {
  const std::string_view text = trimmed(frame);
  if (text.empty()) return true;
  if (isStop(trimmedOfUnicodeWhitespace(text))) return true;
  try {
    if (isStop(StopSignal::decode(text).command)) return true;
  } catch (const JSONDecodingError&) {
    // Any frame that does not decode is not a stop.
  }
  throw SidecarRuntimeError::invalidStopSignal();
}

}  // namespace quenlor
