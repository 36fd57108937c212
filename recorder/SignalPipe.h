#pragma once

#include "recorder/Pipe.h"

namespace quenlor::recorder {

/// Turns signals into bytes that poll() can wait for. One object a process, until its end.
///
/// Caught are SIGINT, SIGTERM, SIGHUP and SIGQUIT, each once: a second one ends the program at
/// once, whatever it waits for. So is SIGTSTP, every time. What was ignored at the start stays so.
class SignalPipe {
 public:
  /// Throws std::system_error.
  SignalPipe();

  int descriptor() const { return pipe.readEnd.fileDescriptor(); }

  /// The number of a signal that came; 0 where none did.
  int takeSignal();

 private:
  Pipe pipe;
};

}  // namespace quenlor::recorder
