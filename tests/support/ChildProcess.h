#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace quenlor::test {

/// What becomes of the pipe on a child's standard error.
enum class ErrorPipe {
  isCollected,
  /// Nobody reads it.
  isUnread,
  /// Nobody reads it, and it is full from the start.
  isFull,
  /// Its reading end is closed.
  isBroken,
};

/// How a child process is started.
struct ChildOptions {
  std::vector<std::string> arguments;
  /// Added to the environment of this process; a value here replaces one of the same name.
  std::map<std::string, std::string> environment;
  /// Where the child starts; empty for the current folder.
  std::filesystem::path workingDirectory;
  /// Those of the descriptors 0, 1 and 2 that the child starts without.
  std::set<int> closedDescriptors;
  ErrorPipe errorPipe = ErrorPipe::isCollected;
  /// RLIMIT_FSIZE in bytes.
  std::optional<std::uint64_t> fileSizeLimit;
};

/// A running program with pipes on its standard streams. Both outputs are collected during every
/// wait, so that neither side can block the other. Each wait is bounded: one that takes longer
/// than its patience throws std::runtime_error. For one thread at a time.
class ChildProcess {
 public:
  static constexpr std::chrono::seconds defaultPatience{30};

  /// Starts `program`. Throws std::system_error where that fails; a program that cannot be executed
  /// ends with status 127 instead.
  explicit ChildProcess(const std::filesystem::path& program, const ChildOptions& options = {});
  /// Kills the program if it still runs, and waits for its end.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Writes all bytes to the child's standard input. Bytes that the child no longer reads are lost.
  void write(std::string_view bytes);
  void closeInput();
  /// Closes the reading end of the child's standard output.
  void closeOutput();

  /// The next line of standard output without its line feed; nothing at the end of the output.
  /// An unfinished last line is returned like any other.
  [[nodiscard]] std::optional<std::string> readLine(
      std::chrono::milliseconds patience = defaultPatience);

  /// Waits for the end of the program and collects the rest of its output. Gives the status as a
  /// shell does: the exit status, or 128 plus the number of the signal that ended it.
  int waitForExit(std::chrono::milliseconds patience = defaultPatience);

  void sendSignal(int number) const;
  /// The most memory that the program held at once; known once it has ended.
  [[nodiscard]] long peakMemoryKiB() const { return peakMemory; }
  [[nodiscard]] pid_t pid() const { return child; }

  /// Everything collected so far.
  [[nodiscard]] const std::string& standardOutput() const { return output; }
  [[nodiscard]] const std::string& standardError() const { return errors; }

 private:
  void collect(std::chrono::milliseconds wait, bool untilWritable = false);
  bool hasEnded();

  pid_t child = -1;
  int inputEnd = -1;
  int outputEnd = -1;
  int errorEnd = -1;
  std::optional<int> exitStatus;
  long peakMemory = 0;
  bool readsErrors = true;
  std::string output;
  std::string errors;
  std::size_t outputRead = 0;
};

/// What is seen of a run once it has ended.
struct Outcome {
  int status;
  std::string output;
  std::string errors;
};

/// Waits for the end, without closing the program's input.
Outcome finish(ChildProcess& child);

}  // namespace quenlor::test
