#include "recorder/SignalPipe.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
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
  for (const FileHandle* end : {&pipe.readEnd, &pipe.writeEnd})
    ::fcntl(end->fileDescriptor(), F_SETFL, O_NONBLOCK);
  writeEnd = pipe.writeEnd.fileDescriptor();
  const int once = static_cast<int>(SA_RESETHAND);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) catchSignal(number, once);
  for (const int number : {SIGTSTP, SIGCONT}) catchSignal(number, 0);
  for (const int number : {SIGTTIN, SIGTTOU}) std::signal(number, SIG_IGN);
}

int SignalPipe::takeSignal() {
  unsigned char number = 0;
  return ::read(pipe.readEnd.fileDescriptor(), &number, 1) == 1 ? number : 0;
}

void SignalPipe::suspend() {
  std::signal(SIGTSTP, SIG_DFL);
  ::raise(SIGTSTP);
  catchSignal(SIGTSTP, 0);
}

}  // namespace quenlor::recorder
