#include "recorder/StandardInput.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

bool isPipe(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 &&
         (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

}  // namespace

StandardInput::StandardInput()
    : terminal(::isatty(STDIN_FILENO) == 1), pipe(isPipe(STDIN_FILENO)) {}

int StandardInput::descriptor() const {
  return pipe || hasKeys() ? STDIN_FILENO : -1;
}

bool StandardInput::hasKeys() const {
  return terminal && ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
}

StandardInput::Request StandardInput::read() {
  constexpr std::string_view stopKeys = "qQ\x04";  // The last is Ctrl-D.
  std::array<char, 4096> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return Request::none;
  // The terminal went to another program between poll() and read().
  if (count < 0 && terminal && !hasKeys()) return Request::none;
  if (count <= 0) return Request::stopByEnd;
  const std::string_view text(bytes.data(), static_cast<std::size_t>(count));
  const bool isStop = terminal && text.find_first_of(stopKeys) != std::string_view::npos;
  return isStop ? Request::stopByKey : Request::none;
}

void StandardInput::takeKeys() {
  constexpr tcflag_t byLineAndShown = ICANON | ECHO;
  termios mode{};
  if (!hasKeys() || ::tcgetattr(STDIN_FILENO, &mode) != 0) return;
  if ((mode.c_lflag & byLineAndShown) == 0) return;
  if (!modeFound) modeFound = mode;
  mode.c_lflag &= ~byLineAndShown;
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSADRAIN, &mode);
}

void StandardInput::giveBack() {
  // In the background the terminal is another program's, in the mode which that one wants.
  if (modeFound && hasKeys()) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &*modeFound);
  modeFound.reset();
}

}  // namespace quenlor::recorder
