#include "tests/support/ChildProcess.h"

#include "recorder/Pipe.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pollInterval{5};

int checked(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

// Appends what can be read without waiting; closes the pipe at the end of the stream.
void readAvailable(FileHandle& pipe, std::string& text) {
  std::array<char, 65536> bytes;
  while (pipe.isOpen()) {
    const ssize_t count = ::read(pipe.fileDescriptor(), bytes.data(), bytes.size());
    if (count > 0) {
      text.append(bytes.data(), static_cast<std::size_t>(count));
    } else if (count == 0) {
      pipe = FileHandle();
    } else if (errno != EINTR) {
      return;
    }
  }
}

// Runs between fork and exec: only functions that are safe in a signal handler may be called.
[[noreturn]] void becomeProgram(const std::array<int, 3>& streams, char* const* arguments) {
  for (const int descriptor : {0, 1, 2})
    ::dup2(streams[static_cast<std::size_t>(descriptor)], descriptor);
  // Whoever runs the tests may ignore them.
  for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) std::signal(number, SIG_DFL);
  ::execv(arguments[0], arguments);
  ::_exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& setUp) {
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<std::string> words = {"/bin/bash", "-c", setUp + "\nexec \"$@\"", "bash"};
  words.insert(words.end(), command.begin(), command.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  recorder::Pipe in, out, err;
  child = checked(::fork(), "fork");
  if (child == 0) {
    becomeProgram(
        {in.readEnd.fileDescriptor(), out.writeEnd.fileDescriptor(), err.writeEnd.fileDescriptor()},
        arguments.data());
  }
  input = std::move(in.writeEnd);
  outputPipe = std::move(out.readEnd);
  errorPipe = std::move(err.readEnd);
  for (const FileHandle* pipe : {&input, &outputPipe, &errorPipe})
    checked(::fcntl(pipe->fileDescriptor(), F_SETFL, O_NONBLOCK), "fcntl");
}

ChildProcess::~ChildProcess() {
  if (hasEnded()) return;
  ::kill(child, SIGKILL);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

// Waits until one of the outputs has something to read (or the input has room), then reads it.
void ChildProcess::collect(std::chrono::milliseconds wait, bool untilWritable) {
  std::array<pollfd, 3> watched{{{outputPipe.fileDescriptor(), POLLIN, 0},
                                 {errorPipe.fileDescriptor(), POLLIN, 0},
                                 {untilWritable ? input.fileDescriptor() : -1, POLLOUT, 0}}};
  ::poll(watched.data(), watched.size(), static_cast<int>(wait.count()));
  readAvailable(outputPipe, output);
  readAvailable(errorPipe, errors);
}

void ChildProcess::write(std::string_view bytes) {
  const Clock::time_point deadline = Clock::now() + defaultPatience;
  while (!bytes.empty()) {
    const ssize_t count = ::write(input.fileDescriptor(), bytes.data(), bytes.size());
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EPIPE) {
      return;
    } else if (errno != EAGAIN && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "write");
    } else if (Clock::now() > deadline) {
      throw std::runtime_error("The child does not read its input.");
    } else {
      collect(pollInterval, true);
    }
  }
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (output.find('\n', outputRead) == std::string::npos && outputPipe.isOpen()) {
    if (Clock::now() > deadline) {
      throw std::runtime_error("No line came. Standard error: " + errors);
    }
    collect(pollInterval);
  }
  if (outputRead == output.size()) return std::nullopt;
  const std::size_t end = output.find('\n', outputRead);
  std::string line = output.substr(outputRead, end - outputRead);
  outputRead = end == std::string::npos ? output.size() : end + 1;
  return line;
}

bool ChildProcess::hasEnded() {
  if (exitStatus) return true;
  int state = 0;
  rusage usage{};
  if (::wait4(child, &state, WNOHANG, &usage) != child) return false;
  peakMemory = usage.ru_maxrss;
  exitStatus = WIFSIGNALED(state) ? 128 + WTERMSIG(state) : WEXITSTATUS(state);
  return true;
}

int ChildProcess::waitForExit(std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (!hasEnded()) {
    if (Clock::now() > deadline) {
      throw std::runtime_error("The child does not end. Standard error: " + errors);
    }
    collect(pollInterval);
  }
  collect(std::chrono::milliseconds{0});
  return *exitStatus;
}

void ChildProcess::sendSignal(int number) const {
  checked(::kill(child, number), "kill");
}

Outcome finish(ChildProcess& child, std::chrono::milliseconds patience) {
  const int status = child.waitForExit(patience);
  return {status, child.standardOutput(), child.standardError()};
}

}  // namespace quenlor::test
