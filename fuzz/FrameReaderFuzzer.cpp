#include "FramedStdinReader.h"
#include "SidecarRuntimeError.h"
#include "fuzz/FuzzTarget.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

// Input: a byte that chooses how the text comes, then the text; or, for a pipe, pieces of it, each
// behind a byte with its length.

namespace quenlor::fuzz {
namespace {

constexpr std::size_t longest = FramedStdinReader::maximumFrameLength;

struct Outcome {
  std::vector<std::string> frames;
  bool refused = false;

  bool operator==(const Outcome&) const = default;
};

/// What the reader has to give, from the whole text at once.
Outcome expectedOf(std::string_view text) {
  Outcome outcome;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    outcome.refused = line.size() > longest;
    if (outcome.refused) break;
    const bool isBlank = line.find_first_not_of("\t\n\r ") == std::string_view::npos;
    if (!isBlank) outcome.frames.emplace_back(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return outcome;
}

Outcome readAll(int descriptor) {
  Outcome outcome;
  FramedStdinReader reader(descriptor);
  try {
    while (const std::optional<std::string> frame = reader.readFrame())
      outcome.frames.push_back(*frame);
    require(!reader.readFrame(), "nothing comes after the end of input");
  } catch (const SidecarRuntimeError& error) {
    require(error.errorCase() == SidecarRuntimeError::Case::stdinReadFailed, "the error is a read");
    outcome.refused = true;
  }
  return outcome;
}

/// Reads from a pipe in which each piece is a packet: every read gets exactly one.
void readFromPipe(FuzzedInput& input) {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC | O_DIRECT) == 0, "a pipe can be made");
  constexpr int packets = 200;
  require(::fcntl(ends[1], F_SETPIPE_SZ, packets * 4096) > 0, "the pipe has room");
  std::string text;
  for (int i = 0; i < packets && !input.isEmpty(); ++i) {
    const std::string_view piece = input.text(input.number<std::uint8_t>());
    require(::write(ends[1], piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
            "the pipe takes it all");
    text += piece;
  }
  ::close(ends[1]);
  require(readAll(ends[0]) == expectedOf(text), "the frames are the lines that are not blank");
  ::close(ends[0]);
}

/// Reads a text around the longest line that is allowed, from a file.
void readLongLine(FuzzedInput& input, std::size_t prefix) {
  std::string text(prefix, 'x');
  text += input.remainingText();
  std::FILE* const file = std::tmpfile();
  require(file != nullptr, "a temporary file can be made");
  require(std::fwrite(text.data(), 1, text.size(), file) == text.size(), "and written");
  std::rewind(file);
  require(readAll(::fileno(file)) == expectedOf(text), "only lines that are too long are refused");
  std::fclose(file);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedInput input(data, size);
  constexpr std::uint8_t firstLongLine = 0xF8;
  const auto manner = input.number<std::uint8_t>();
  if (manner < firstLongLine)
    readFromPipe(input);
  else
    readLongLine(input, longest - 4 + (manner - firstLongLine));
  return 0;
}

}  // namespace quenlor::fuzz
