#pragma once

#include "FileHandle.h"

#include <string>
#include <utility>
#include <vector>

namespace quenlor::recorder {

/// Splits the output of a pipe into lines, without waiting for the rest of an unfinished line.
class LineReader {
 public:
  explicit LineReader(FileHandle readEnd) : pipe(std::move(readEnd)) {}

  /// The descriptor to poll; at the end of the stream -1, which poll() ignores.
  int descriptor() const { return pipe.fileDescriptor(); }

  /// Reads once, blocking if there is nothing to read. Returns the lines that are complete now,
  /// without their line feeds. At the end of the stream an unfinished line counts as complete.
  std::vector<std::string> readLines();

 private:
  FileHandle pipe;
  std::string unfinished;
};

}  // namespace quenlor::recorder
