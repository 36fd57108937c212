#pragma once

#include <cstddef>
#include <string>

namespace quenlor::recorder {

/// Standard output: lines that stay, and below them, where it is a terminal, one that changes.
///
/// Nothing here throws or ends the recording. Where standard output cannot be written to, standard
/// error says so once, and nothing more is printed.
class Screen {
 public:
  Screen();
  /// Prints what had to wait.
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  bool isTerminal() const { return terminal; }
  /// Whether this is a terminal and no other program is in its foreground.
  bool canDraw() const;
  /// Columns that a changing line may have without wrapping.
  std::size_t lineWidth() const;

  /// A line that stays, which comes without its line feed. Where the user of a terminal has stopped
  /// its output, the line is kept until it goes on; any other reader is waited for.
  void printLine(const std::string& line);
  /// Replaces the changing line, cut to the width. Does nothing where output is stopped.
  void draw(const std::string& line);
  /// Removes the changing line.
  void wipe();

 private:
  void printKeptLines();
  void write(const std::string& text);
  /// What removes the changing line and leaves the cursor where it began.
  std::string eraser() const;

  bool terminal;
  bool understandsEscapes;
  bool isBroken = false;
  std::string keptLines;
  /// Of the changing line; 0 where there is none.
  std::size_t columnsDrawn = 0;
};

}  // namespace quenlor::recorder
