#pragma once

#include "FileHandle.h"
#include "recorder/LineReader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace quenlor::recorder {

/// The sidecar as a child process, with pipes on its standard streams.
///
/// It runs in a session of its own, so that a terminal's Ctrl-C does not reach it, and no other
/// process holds the writing end of its input: however this process ends, that pipe closes, and
/// with it the recording.
class SidecarProcess {
 public:
  /// Throws std::system_error where the program cannot be started.
  explicit SidecarProcess(const std::filesystem::path& program);
  /// Ends the recording and waits for the program's end.
  ~SidecarProcess();
  SidecarProcess(const SidecarProcess&) = delete;
  SidecarProcess& operator=(const SidecarProcess&) = delete;

  /// text is lost on a program that has ended: its last words and its status tell more.
  void write(std::string_view text);
  /// Stops the recording, which the program then finishes.
  void closeInput() { input = FileHandle(); }

  /// Ends the program at once.
  void kill() const;

  LineReader& replies() { return output; }
  LineReader& trace() { return errors; }
  /// False once both outputs have ended, as they do with the program.
  bool isTalking() const { return output.descriptor() >= 0 || errors.descriptor() >= 0; }

  /// Waits for the program's end and gives its status as waitpid() does.
  int waitForExit();

 private:
  struct Pipes;
  SidecarProcess(const std::filesystem::path& program, Pipes pipes);

  FileHandle input;
  LineReader output;
  LineReader errors;
  pid_t child = -1;
  std::optional<int> status;
};

/// What a status of waitpid() means: "ended with status 1" or "was ended by signal 9 (Killed)".
std::string describeExit(int status);

}  // namespace quenlor::recorder
