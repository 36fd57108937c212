#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace quenlor {

/// Cuts the bytes of a descriptor into frames: lines without their line feeds. Bytes behind a line
/// wait in the buffer for the next call. Used by one thread; never closes the descriptor.
class FramedStdinReader {
 public:
  /// The longest frame: control lines are short, and a parent that never ends its line must not
  /// take the machine's memory.
  static constexpr std::size_t maximumFrameLength = 1 << 20;

  explicit FramedStdinReader(std::int32_t descriptor) : fileDescriptor(descriptor) {}

  /// The next frame that is not blank, untrimmed; a last line without a line feed counts. Nothing
  /// at the end of input. Blocks until then. Throws SidecarRuntimeError::stdinReadFailed where
  /// reading fails or a frame is too long.
  std::optional<std::string> readFrame();

 private:
  /// The next line in the buffer; nothing where none has ended yet.
  std::optional<std::string> takeLine();
  /// False at the end of input.
  bool readMore();

  const std::int32_t fileDescriptor;
  std::string buffer;
  /// Bytes of buffer known to hold no line feed.
  std::size_t searched = 0;
};

}  // namespace quenlor
