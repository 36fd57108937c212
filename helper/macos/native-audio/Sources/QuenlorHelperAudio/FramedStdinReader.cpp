#include "FramedStdinReader.h"

#include "POSIXErrorName.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"

#include <array>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace quenlor {

namespace {

bool isBlank(const std::string& frame) {
  return SidecarControlProtocol::trimmed(frame).empty();
}

}  // namespace

std::optional<std::string> FramedStdinReader::readFrame() {
  for (;;) {
    while (std::optional<std::string> line = takeLine())
      if (!isBlank(*line)) return line;
    if (!readMore()) break;
  }
  std::string last = std::exchange(buffer, {});
  searched = 0;
  if (isBlank(last)) return std::nullopt;
  return last;
}

std::optional<std::string> FramedStdinReader::takeLine() {
  const std::size_t end = buffer.find('\n', searched);
  const bool hasEnded = end != std::string::npos;
  if ((hasEnded ? end : buffer.size()) > maximumFrameLength)
    throw SidecarRuntimeError::stdinReadFailed("a line is longer than " +
                                               std::to_string(maximumFrameLength) + " bytes");
  searched = hasEnded ? 0 : buffer.size();
  if (!hasEnded) return std::nullopt;
  std::string line = buffer.substr(0, end);
  buffer.erase(0, end + 1);
  return line;
}

bool FramedStdinReader::readMore() {
  std::array<char, 4096> chunk{};
  for (;;) {
    const ssize_t count = ::read(fileDescriptor, chunk.data(), chunk.size());
    if (count > 0) buffer.append(chunk.data(), static_cast<std::size_t>(count));
    if (count >= 0) return count > 0;
    if (errno != EINTR) throw SidecarRuntimeError::stdinReadFailed(posixErrorName(errno));
  }
}

}  // namespace quenlor
