#include "recorder/SignalPipe.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

int writeEnd = -1;

extern "C" void writeToPipe(int number) {
  const int interrupted = errno;
  const auto byte = static_cast<unsigned char>(number);
  // A full pipe holds more signals than anyone has sent on purpose.
  [[maybe_unused]] const ssize_t count = ::write(writeEnd, &byte, 1);
  errno = interrupted;
}

void catchSignal(int number, int flags) {
  struct sigaction action {};
  ::sigaction(number, nullptr, &action);
  if (action.sa_handler == SIG_IGN) return;
  action.sa_handler = writeToPipe;
  action.sa_flags = flags | SA_RESTART;
  ::sigaction(number, &action, nullptr);
}

}  // namespace

SignalPipe::SignalPipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
    throw std::system_error(errno, std::generic_category(), "Making a pipe failed");
  readEnd = FileHandle(ends[0]);
  writeEnd = ends[1];
  const int once = static_cast<int>(SA_RESETHAND);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) catchSignal(number, once);
  catchSignal(SIGTSTP, 0);
}

int SignalPipe::takeSignal() {
  unsigned char number = 0;
  return ::read(readEnd.fileDescriptor(), &number, 1) == 1 ? number : 0;
}

}  // namespace quenlor::recorder
