#include "recorder/Terminal.h"

#include "FileHandle.h"

#include <span>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor::recorder {

namespace {

bool inputIsPipe() {
  struct stat status {};
  return ::fstat(STDIN_FILENO, &status) == 0 &&
         (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

}  // namespace

void print(const std::string& text) {
  writeAll(STDOUT_FILENO, std::as_bytes(std::span(text)));
}

Terminal::Terminal()
    // A program in the background is stopped when it reads from its terminal.
    : keys(::isatty(STDIN_FILENO) == 1 && ::tcgetpgrp(STDIN_FILENO) == ::getpgrp()),
      screen(::isatty(STDOUT_FILENO) == 1) {
  input = keys || inputIsPipe() ? STDIN_FILENO : -1;
}

std::size_t Terminal::lineWidth() const {
  constexpr std::size_t usualColumns = 80;
  winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  // Some terminals wrap as soon as the last column is written.
  return (known ? size.ws_col : usualColumns) - 1;
}

void Terminal::takeKeys() {
  termios mode{};
  if (!keys || modeFound || ::tcgetattr(STDIN_FILENO, &mode) != 0) return;
  modeFound = mode;
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSADRAIN, &mode);
}

void Terminal::draw(const std::string& line) {
  print('\r' + line);
  columnsDrawn = line.size();
}

void Terminal::giveBack() {
  try {
    if (columnsDrawn > 0) print('\r' + std::string(std::exchange(columnsDrawn, 0), ' ') + '\r');
  } catch (const std::system_error&) {
    // A terminal that is gone has nothing left to wipe.
  }
  if (modeFound) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &*modeFound);
  modeFound.reset();
}

}  // namespace quenlor::recorder
