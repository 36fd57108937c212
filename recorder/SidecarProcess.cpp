#include "recorder/SidecarProcess.h"

#include "recorder/Pipe.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

// NOLINTNEXTLINE(readability-redundant-declaration): POSIX has no header declare it; glibc's does.
extern char** environ;

namespace quenlor::recorder {

namespace {

/// How the program is to start, for posix_spawnp().
class SpawnSettings {
 public:
  SpawnSettings(int input, int output, int errors) {
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  pid_t start(std::string program) const {
    pid_t child = -1;
    const std::array<char*, 2> arguments{program.data(), nullptr};
    const int error =
        ::posix_spawnp(&child, program.c_str(), &actions, &attributes, arguments.data(), environ);
    if (error != 0)
      throw std::system_error(error, std::generic_category(),
                              "Starting \"" + program + "\" failed");
    return child;
  }

 private:
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

}  // namespace

struct SidecarProcess::Pipes {
  Pipe input;
  Pipe output;
  Pipe errors;
};

SidecarProcess::SidecarProcess(const std::filesystem::path& program)
    : SidecarProcess(program, Pipes()) {}

SidecarProcess::SidecarProcess(const std::filesystem::path& program, Pipes pipes)
    : input(std::move(pipes.input.writeEnd)),
      output(std::move(pipes.output.readEnd)),
      errors(std::move(pipes.errors.readEnd)) {
  const SpawnSettings settings(pipes.input.readEnd.fileDescriptor(),
                               pipes.output.writeEnd.fileDescriptor(),
                               pipes.errors.writeEnd.fileDescriptor());
  child = settings.start(program.string());
}

SidecarProcess::~SidecarProcess() {
  closeInput();
  waitForExit();
}

void SidecarProcess::write(std::string_view text) {
  try {
    input.write(text);
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::broken_pipe) throw;
  }
}

void SidecarProcess::kill() const {
  // Its session holds what it has started itself as well.
  if (!status) ::kill(-child, SIGKILL);
}

int SidecarProcess::waitForExit() {
  int ended = 0;
  while (!status) {
    if (::waitpid(child, &ended, 0) == child || errno != EINTR) status = ended;
  }
  return *status;
}

std::string describeExit(int status) {
  if (!WIFSIGNALED(status)) return "ended with status " + std::to_string(WEXITSTATUS(status));
  const int number = WTERMSIG(status);
  return "was ended by signal " + std::to_string(number) + " (" + ::strsignal(number) + ")";
}

}  // namespace quenlor::recorder
