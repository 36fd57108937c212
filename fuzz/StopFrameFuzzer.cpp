#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"
#include "fuzz/FuzzTarget.h"

#include <algorithm>
#include <string>
#include <string_view>

// Input: the frame.

namespace quenlor::fuzz {
namespace {

bool isAccepted(std::string_view frame) {
  try {
    require(SidecarControlProtocol::parseStopFrame(frame), "a stop is true or an error");
    return true;
  } catch (const SidecarRuntimeError& error) {
    require(error.errorCase() == SidecarRuntimeError::Case::invalidStopSignal, "of one kind");
    return false;
  }
}

std::string inLowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  return lower;
}

/// Every stop there can be, and more: blanks, the word among blanks of any alphabet, or an object
/// in which the word may stand.
bool couldBeStop(std::string_view frame) {
  const std::string text = inLowerCase(frame);
  const auto isBlank = [](char c) {
    return static_cast<unsigned char>(c) >= 0x80 || (c >= '\t' && c <= '\r') || c == ' ';
  };
  std::string visible = text;
  std::erase_if(visible, isBlank);
  if (visible.empty() || visible == "stop") return true;
  if (!visible.starts_with('{') || !visible.ends_with('}')) return false;
  if (text.find('\\') != std::string::npos) return true;  // letters may be written as numbers
  return text.find("\"command\"") != std::string::npos &&
         text.find("\"stop\"") != std::string::npos;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view frame = FuzzedInput(data, size).remainingText();
  const bool accepted = isAccepted(frame);
  require(!accepted || couldBeStop(frame), "nothing but a stop is accepted");
  require(isAccepted(" \t" + std::string(frame) + "\r\n") == accepted, "blanks change nothing");
  return 0;
}

}  // namespace quenlor::fuzz
