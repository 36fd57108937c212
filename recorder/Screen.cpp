#include "recorder/Screen.h"

#include "FileHandle.h"

#include <cstdlib>
#include <iostream>
#include <poll.h>
#include <span>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor::recorder {

namespace {

// The cursor rests at the beginning of the changing line. It stays there when a window that becomes
// narrower wraps that line, so that all pieces are behind it.
const std::string eraseLine = "\x1b[K";
const std::string eraseBehindCursor = "\x1b[J";
// A window may have become narrower since its width was asked for.
const std::string noWrapping = "\x1b[?7l";
const std::string wrapping = "\x1b[?7h";

bool terminalUnderstandsEscapes() {
  const char* const kind = std::getenv("TERM");
  return kind != nullptr && std::string_view(kind) != "dumb";
}

/// False on a terminal whose user has stopped its output (Ctrl-S).
bool takesOutputNow() {
  pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
  return ::poll(&output, 1, 0) == 1;
}

}  // namespace

Screen::Screen()
    : terminal(::isatty(STDOUT_FILENO) == 1), understandsEscapes(terminalUnderstandsEscapes()) {}

Screen::~Screen() {
  wipe();
  printKeptLines();
}

bool Screen::canDraw() const {
  if (!terminal || isBroken) return false;
  const pid_t foreground = ::tcgetpgrp(STDOUT_FILENO);
  // A terminal that does not control this program has no foreground to be in.
  return foreground < 0 || foreground == ::getpgrp();
}

std::size_t Screen::lineWidth() const {
  constexpr std::size_t usualColumns = 80;
  winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  // Some terminals wrap as soon as the last column is written.
  return (known ? size.ws_col : usualColumns) - 1;
}

void Screen::printLine(const std::string& line) {
  keptLines += line + '\n';
  if (!terminal || takesOutputNow()) printKeptLines();
}

void Screen::printKeptLines() {
  if (keptLines.empty()) return;
  write(eraser() + std::exchange(keptLines, {}));
  columnsDrawn = 0;
}

void Screen::draw(const std::string& line) {
  if (!canDraw() || !takesOutputNow()) return;
  printKeptLines();
  const std::string fitting = line.substr(0, lineWidth());
  if (understandsEscapes)
    write('\r' + noWrapping + fitting + wrapping + eraseBehindCursor + '\r');
  else
    write(eraser() + fitting);
  columnsDrawn = fitting.size();
}

void Screen::wipe() {
  if (!takesOutputNow()) return;
  write(eraser());
  columnsDrawn = 0;
}

std::string Screen::eraser() const {
  if (columnsDrawn == 0 || !canDraw()) return {};
  if (!understandsEscapes) return '\r' + std::string(columnsDrawn, ' ') + '\r';
  return '\r' + (lineWidth() < columnsDrawn ? eraseBehindCursor : eraseLine);
}

void Screen::write(const std::string& text) {
  if (isBroken || text.empty()) return;
  try {
    writeAll(STDOUT_FILENO, std::as_bytes(std::span(text)));
  } catch (const std::system_error& error) {
    isBroken = true;
    std::cerr << "quenlor-record: Writing to standard output failed: " << error.code().message()
              << '\n';
  }
}

}  // namespace quenlor::recorder
