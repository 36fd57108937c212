#pragma once

#include <optional>
#include <termios.h>

namespace quenlor::recorder {

/// Standard input, as far as it can stop a recording: by keys, while this program is in the
/// foreground of the terminal, or by its end where it is a pipe. Anything else says nothing, such
/// as the end of a file or of /dev/null.
class StandardInput {
 public:
  enum class Request { none, stopByKey, stopByEnd };

  StandardInput();
  ~StandardInput() { giveBack(); }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

  /// What to poll; -1 where there is nothing to read now.
  int descriptor() const;
  /// Whether a key would be heard now.
  bool hasKeys() const;
  /// Reads once, which waits where there is nothing to read.
  Request read();

  /// From here on keys come one by one and are not shown. Does nothing in the background; to be
  /// repeated now and then, since a shell does not say that it brought a program to the foreground.
  void takeKeys();
  /// Leaves the terminal as it was found.
  void giveBack();

 private:
  bool terminal;
  bool pipe;
  /// The terminal's mode as it was found, while it is another one.
  std::optional<termios> modeFound;
};

}  // namespace quenlor::recorder
