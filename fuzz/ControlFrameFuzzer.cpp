#include "JSONCoding.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"
#include "fuzz/FuzzTarget.h"

#include <algorithm>
#include <string>
#include <string_view>

// Input: a frame, which is read as a start request and as a stop.

namespace quenlor::fuzz {
namespace {

void checkDecoded(std::string_view frame, const StartRequest& request) {
  std::string_view text = SidecarControlProtocol::trimmed(frame);
  // A byte order mark is let through, as JSON readers may.
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  require(text.starts_with('{') && text.ends_with('}'), "only an object is a request");
  const std::string encoded = request.encode();
  require(encoded.find('\n') == std::string::npos, "an encoded request is one line");
  require(SidecarControlProtocol::decodeStartRequestFrame(encoded) == request,
          "what was decoded can be encoded and decoded again");
  StartRequest unlike{request.mode, request.outputPath + "/path", request.title + " title"};
  require(StartRequest::decode(unlike.encode()) == unlike, "each field has a place of its own");
}

/// The text ends up as the last line on standard error, which a parent shows to people.
void checkErrorLine(const std::string& text) {
  constexpr std::size_t longestLine = 300;
  require(!text.empty() && text.size() <= longestLine, "an error line has a readable length");
  require(std::ranges::all_of(text, [](char c) { return c >= 0x20 && c <= 0x7E; }),
          "an error is one line of printable text");
}

void checkStart(std::string_view frame, bool isBlank) {
  try {
    checkDecoded(frame, SidecarControlProtocol::decodeStartRequestFrame(frame));
  } catch (const SidecarRuntimeError& error) {
    require(error.errorCase() == SidecarRuntimeError::Case::emptyStartRequest && isBlank,
            "only a blank frame is an empty request");
  } catch (const JSONDecodingError& error) {
    require(!isBlank, "a blank frame is an empty request");
    checkErrorLine(error.what());
  }
}

bool isStop(std::string_view frame) {
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
  const bool isBlank = frame.find_first_not_of("\t\n\r ") == std::string_view::npos;
  checkStart(frame, isBlank);
  const bool accepted = isStop(frame);
  require(accepted || !isBlank, "a blank frame is a stop");
  require(!accepted || couldBeStop(frame), "nothing but a stop is accepted");
  require(isStop(" \t" + std::string(frame) + "\r\n") == accepted, "blanks change nothing");
  return 0;
}

}  // namespace quenlor::fuzz
