#pragma once

#include "FileHandle.h"

namespace quenlor::recorder {

/// Both ends of a pipe. They are close-on-exec, so that no child process keeps the pipe open.
struct Pipe {
  /// Throws std::system_error.
  Pipe();

  FileHandle readEnd;
  FileHandle writeEnd;
};

}  // namespace quenlor::recorder
