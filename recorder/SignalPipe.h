#pragma once

#include "recorder/Pipe.h"

namespace quenlor::recorder {

/// Turns signals into bytes that poll() can wait for. One object a process, until its end.
///
/// Caught are SIGINT, SIGTERM, SIGHUP and SIGQUIT, each once: a second one ends the program at
/// once, whatever it waits for. So are SIGTSTP and SIGCONT, every time. What was ignored at the
/// start stays so. SIGTTIN and SIGTTOU are ignored: a program in the background goes on.
class SignalPipe {
 public:
  /// Throws std::system_error.
  SignalPipe();

  int descriptor() const { return pipe.readEnd.fileDescriptor(); }

  /// The number of a signal that came; 0 where none did.
  int takeSignal();

  /// Stops this program as SIGTSTP does by itself, and returns when it is continued; at once where
  /// no shell is there to continue it.
  static void suspend();

 private:
  Pipe pipe;
};

}  // namespace quenlor::recorder
