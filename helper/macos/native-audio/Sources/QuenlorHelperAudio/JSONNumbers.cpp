#include "JSONNumbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>

namespace quenlor {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view charactersOfNumbers = "+-.eE0123456789";

/// Removes the characters at the front of text that are among set. False where there are none.
bool skipAll(std::string_view& text, std::string_view set) {
  const std::size_t count = std::min(text.find_first_not_of(set), text.size());
  text.remove_prefix(count);
  return count > 0;
}

bool skipOne(std::string_view& text, std::string_view set) {
  const bool isThere = !text.empty() && set.find(text.front()) != std::string_view::npos;
  if (isThere) text.remove_prefix(1);
  return isThere;
}

/// Whether all of text is one number as JSON writes them.
bool isNumber(std::string_view text) {
  skipOne(text, "-");
  if (!skipOne(text, "0") && !skipAll(text, digits)) return false;
  if (skipOne(text, ".") && !skipAll(text, digits)) return false;
  if (skipOne(text, "eE")) {
    skipOne(text, "+-");
    if (!skipAll(text, digits)) return false;
  }
  return text.empty();
}

bool isHugeNumber(const std::string& text) {
  return isNumber(text) && std::isinf(std::strtod(text.c_str(), nullptr));
}

/// The length of the JSON string at the front of text, both quotes included.
std::size_t lengthOfString(std::string_view text) {
  std::size_t end = 1;
  while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
  return std::min(end + 1, text.size());
}

/// The length of the string, the number or the other text at the front of text, which is not empty.
std::size_t lengthOfPiece(std::string_view text) {
  if (text.front() == '"') return lengthOfString(text);
  const std::size_t number = std::min(text.find_first_not_of(charactersOfNumbers), text.size());
  return number > 0 ? number : 1;
}

}  // namespace

std::string withoutHugeNumbers(std::string_view json) {
  std::string clean;
  while (!json.empty()) {
    const std::string piece(json.substr(0, lengthOfPiece(json)));
    clean += isHugeNumber(piece) ? "null" : piece;
    json.remove_prefix(piece.size());
  }
  return clean;
}

}  // namespace quenlor
