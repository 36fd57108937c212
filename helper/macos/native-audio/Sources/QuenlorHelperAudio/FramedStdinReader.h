#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace quenlor {

/// Splits the bytes of a descriptor into frames: lines without their line feeds. Bytes after a line
/// stay in the buffer for the next call. Used by one thread; never closes the descriptor.
class FramedStdinReader {
 public:
  /// The longest frame. Control lines are short, and a parent that never ends its line must not
  /// exhaust memory.
  static constexpr std::size_t maximumFrameLength = 1 << 20;

  explicit FramedStdinReader(std::int32_t descriptor) : fileDescriptor(descriptor) {}

  /// Returns the next frame that is not blank, untrimmed; a last line without a line feed counts.
  /// Returns nullopt at the end of input. Blocks until then. Throws
  /// SidecarRuntimeError::stdinReadFailed if reading fails or a frame is too long.
  std::optional<std::string> readFrame();

 private:
  /// The next line in the buffer; nullopt if none has ended yet.
  std::optional<std::string> takeLine();
  /// False at the end of input.
  bool readMore();

  const std::int32_t fileDescriptor;
  std::string buffer;
  /// Bytes of buffer known to hold no line feed.
  std::size_t searched = 0;
};

}  // namespace quenlor
