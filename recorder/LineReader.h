#pragma once

#include "FileHandle.h"

#include <string>
#include <utility>
#include <vector>

namespace quenlor::recorder {

/// Cuts what comes out of a pipe into lines, without ever waiting for the rest of one.
class LineReader {
 public:
  explicit LineReader(FileHandle readEnd) : pipe(std::move(readEnd)) {}

  /// What to poll; -1, which poll() passes over, at the end of the stream.
  int descriptor() const { return pipe.fileDescriptor(); }

  /// Reads once, which waits where there is nothing to read, and gives the lines that this
  /// completed, without their line feeds. At the end of the stream an unfinished line is one.
  std::vector<std::string> readLines();

 private:
  FileHandle pipe;
  std::string unfinished;
};

}  // namespace quenlor::recorder
