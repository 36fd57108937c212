#pragma once

#include "FileHandle.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace quenlor::test {

/// A running program with pipes on its standard streams. Both outputs are collected during every
/// wait, so that neither side can block the other. Each wait is bounded: one that takes longer
/// than its patience throws std::runtime_error. For one thread at a time.
class ChildProcess {
 public:
  static constexpr std::chrono::seconds defaultPatience{30};

  /// Starts a program, which is looked for as a shell does, with its arguments. setUp is what the
  /// shell does before it becomes the program: it sets variables and limits, closes streams, goes
  /// elsewhere. Throws std::system_error; a program that is not there ends with status 127 instead.
  explicit ChildProcess(const std::vector<std::string>& command, const std::string& setUp = "");
  /// Kills the program if it still runs, and waits for its end.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Writes all bytes to the child's standard input. Bytes that the child no longer reads are lost.
  void write(std::string_view bytes);
  void closeInput() { input = FileHandle(); }
  /// Closes the reading end of the child's standard output.
  void closeOutput() { outputPipe = FileHandle(); }

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
  FileHandle input;
  FileHandle outputPipe;
  FileHandle errorPipe;
  std::optional<int> exitStatus;
  long peakMemory = 0;
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
Outcome finish(ChildProcess& child,
               std::chrono::milliseconds patience = ChildProcess::defaultPatience);

}  // namespace quenlor::test
