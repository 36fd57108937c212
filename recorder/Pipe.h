#pragma once

#include "FileHandle.h"

namespace quenlor::recorder {

/// Both ends of a pipe, which no program that is started from here on inherits. (Every end that
/// another program holds would keep it open.)
struct Pipe {
  /// Throws std::system_error.
  Pipe();

  FileHandle readEnd;
  FileHandle writeEnd;
};

}  // namespace quenlor::recorder
