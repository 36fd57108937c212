#include "tests/support/ChildProcess.h"

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

extern char** environ;

namespace quenlor::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pollInterval{5};

int checked(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

void closeDescriptor(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

void setNonBlocking(int descriptor, bool nonBlocking) {
  const int flags = checked(fcntl(descriptor, F_GETFL), "fcntl");
  checked(fcntl(descriptor, F_SETFL, nonBlocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK),
          "fcntl");
}

// The system takes single bytes until there is no room for one more.
void fillPipe(int writeEnd) {
  setNonBlocking(writeEnd, true);
  const std::string block(4096, '.');
  while (::write(writeEnd, block.data(), block.size()) > 0) {
  }
  while (::write(writeEnd, block.data(), 1) > 0) {
  }
  setNonBlocking(writeEnd, false);
}

// Appends what can be read without waiting; closes the descriptor at the end of the stream.
void readAvailable(int& descriptor, std::string& text) {
  std::array<char, 65536> bytes;
  while (descriptor >= 0) {
    const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
    if (count > 0) {
      text.append(bytes.data(), static_cast<std::size_t>(count));
    } else if (count == 0) {
      closeDescriptor(descriptor);
    } else if (errno != EINTR) {
      return;
    }
  }
}

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& added) {
  std::vector<std::string> entries;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!added.contains(text.substr(0, text.find('=')))) entries.push_back(text);
  }
  for (const auto& [name, value] : added) entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    checked(pipe(ends.data()), "pipe");
    for (const int end : ends) checked(fcntl(end, F_SETFD, FD_CLOEXEC), "fcntl");
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  int readEnd;
  int writeEnd;
};

// Runs between fork and exec: only functions that are safe in a signal handler may be called.
[[noreturn]] void becomeProgram(const ChildOptions& options, const std::array<int, 3>& streams,
                                char* const* arguments, char* const* environment) {
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    if (options.closedDescriptors.contains(descriptor)) {
      ::close(descriptor);
    } else {
      ::dup2(streams[static_cast<std::size_t>(descriptor)], descriptor);
    }
  }
  // Whoever runs the tests may ignore them.
  for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) std::signal(number, SIG_DFL);
  if (options.fileSizeLimit) {
    const rlimit limit{*options.fileSizeLimit, *options.fileSizeLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  if (options.workingDirectory.empty() || chdir(options.workingDirectory.c_str()) == 0) {
    execve(arguments[0], arguments, environment);
  }
  _exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, const ChildOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<std::string> arguments = options.arguments;
  arguments.insert(arguments.begin(), program.string());
  std::vector<std::string> environment = mergedEnvironment(options.environment);
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);

  Pipe input, outputPipe, errorPipe;
  if (options.errorPipe == ErrorPipe::isFull) fillPipe(errorPipe.writeEnd);
  child = checked(fork(), "fork");
  if (child == 0) {
    becomeProgram(options, {input.readEnd, outputPipe.writeEnd, errorPipe.writeEnd},
                  argumentPointers.data(), environmentPointers.data());
  }
  closeDescriptor(input.readEnd);
  closeDescriptor(outputPipe.writeEnd);
  closeDescriptor(errorPipe.writeEnd);
  inputEnd = input.writeEnd;
  outputEnd = outputPipe.readEnd;
  errorEnd = errorPipe.readEnd;
  for (const int descriptor : {inputEnd, outputEnd, errorEnd}) setNonBlocking(descriptor, true);
  readsErrors = options.errorPipe == ErrorPipe::isCollected;
  if (options.errorPipe == ErrorPipe::isBroken) closeDescriptor(errorEnd);
}

ChildProcess::~ChildProcess() {
  if (!hasEnded()) {
    ::kill(child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  for (int* descriptor : {&inputEnd, &outputEnd, &errorEnd}) closeDescriptor(*descriptor);
}

// Waits until one of the outputs has something to read (or the input has room), then reads it.
void ChildProcess::collect(std::chrono::milliseconds wait, bool untilWritable) {
  std::array<pollfd, 3> watched{{{outputEnd, POLLIN, 0},
                                 {readsErrors ? errorEnd : -1, POLLIN, 0},
                                 {untilWritable ? inputEnd : -1, POLLOUT, 0}}};
  ::poll(watched.data(), watched.size(), static_cast<int>(wait.count()));
  readAvailable(outputEnd, output);
  if (readsErrors) readAvailable(errorEnd, errors);
}

void ChildProcess::write(std::string_view bytes) {
  const Clock::time_point deadline = Clock::now() + defaultPatience;
  while (!bytes.empty()) {
    const ssize_t count = ::write(inputEnd, bytes.data(), bytes.size());
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

void ChildProcess::closeInput() {
  closeDescriptor(inputEnd);
}

void ChildProcess::closeOutput() {
  closeDescriptor(outputEnd);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (output.find('\n', outputRead) == std::string::npos && outputEnd >= 0) {
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
  if (wait4(child, &state, WNOHANG, &usage) != child) return false;
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

Outcome finish(ChildProcess& child) {
  const int status = child.waitForExit();
  return {status, child.standardOutput(), child.standardError()};
}

}  // namespace quenlor::test
