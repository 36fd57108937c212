#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <termios.h>

namespace quenlor::recorder {

/// Writes to standard output. Throws std::system_error where nobody listens any longer.
void print(const std::string& text);

/// The terminal that a recording is watched on and stopped from. Either half may be missing: where
/// standard output is no terminal nothing is drawn, where standard input is none there are no keys.
class Terminal {
 public:
  Terminal();
  ~Terminal() { giveBack(); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Standard input where the user or a parent speaks through it: a pipe, or the terminal of a
  /// program in the foreground. -1 elsewhere: the end of a file or of /dev/null says nothing.
  int inputDescriptor() const { return input; }
  bool hasKeys() const { return keys; }
  bool canDraw() const { return screen; }
  /// Columns that a line may have without wrapping.
  std::size_t lineWidth() const;

  /// From here on keys come one by one and are not shown.
  void takeKeys();
  /// Puts line in place of the last one. It needs no escape codes as long as lines get no shorter.
  void draw(const std::string& line);
  /// Leaves the terminal as it was found: the line wiped, keys by the line. May be called twice.
  void giveBack();

 private:
  int input;
  bool keys;
  bool screen;
  std::optional<termios> modeFound;
  std::size_t columnsDrawn = 0;
};

}  // namespace quenlor::recorder
