#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quenlor::test {

/// Starts the program on the virtual devices, in a folder of its own, and speaks with it.
class Conversation : public testing::Test {
 public:
  /// A start line for a recording at `path`, which is put into the JSON text as it stands.
  [[nodiscard]] static std::string startLine(std::string_view path);

 protected:
  Conversation();

  [[nodiscard]] std::string startLine() const { return startLine(output.string()); }

  [[nodiscard]] ChildProcess launch() const;
  /// Writes the start line and returns once the ready line has come.
  void awaitReady(ChildProcess& child) const;
  /// A whole run: writes `input` at once, then closes the program's input.
  [[nodiscard]] Outcome converse(std::string_view input) const;
  /// A whole run: `stop` is written this long after the ready line, and the input stays open.
  [[nodiscard]] Outcome recordUntil(std::string_view stop,
                                    std::chrono::milliseconds length = {}) const;

  /// All that lies below the test's folder, apart from the trace file and its folder.
  [[nodiscard]] std::set<std::string> filesLeft() const;

  TemporaryFolder folder;
  std::filesystem::path output = folder / "recording.wav";
  std::filesystem::path traceFile = folder / "tmp/quenlor-helper-audio.log";
  /// What a shell does before it becomes the program. The program starts in the test's folder, and
  /// has one for its trace.
  std::string setUp;
};

inline constexpr std::string_view readyLine = "{\"status\":\"ready\"}\n";
inline constexpr std::string_view traceTag = "[QuenlorHelperAudio] ";
[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);
/// How many of the lines contain `part`.
[[nodiscard]] std::size_t countLines(const std::string& text, std::string_view part);

/// The run ended with status 1, wrote `expectedOutput` and no more, and ended standard error with
/// one line of an error, which is returned. Every line before it is a trace line.
std::string expectFailure(const Outcome& run, std::string_view expectedOutput);
/// The run ended with status 0 and wrote the ready line and the result line, which agrees with the
/// recording at `path`; that is whole and well-formed.
void expectRecording(const Outcome& run, const std::filesystem::path& path);

}  // namespace quenlor::test
