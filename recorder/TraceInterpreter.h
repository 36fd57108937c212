#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenlor::recorder {

/// Finds in the sidecar's standard error what its user wants to know. All knowledge of the wording
/// of its trace is here. Every text that this gives is one line without control characters.
class TraceInterpreter {
 public:
  /// Takes the next line, without its line feed. Gives what is worth telling while a recording
  /// runs: a change of where the sound comes from, and what is not understood, as it is.
  std::optional<std::string> take(std::string_view line);

  /// Whether the sidecar has said that it captures. Its reply takes another way, and may be later.
  bool isCapturing() const { return capturing; }
  /// Which devices are recorded; empty as long as the sidecar has not said so.
  std::string devices() const;
  /// What the sidecar is waiting for where a step takes long; empty before its first line.
  const std::string& awaited() const { return step; }
  /// How much silence was inserted for sound that was lost; empty where that is none.
  std::string insertedSilence() const;
  /// Why the sidecar failed: the error that it ended with, after its cause where the host told one.
  /// Empty where it said nothing.
  std::vector<std::string> failure() const;
  /// The error itself; empty where there was none.
  const std::string& error() const { return lastUntagged; }

 private:
  struct Source {
    std::string_view nameInTrace;
    std::string_view nameInSentence;
    std::string device;
    std::string silence;
    bool isInterrupted = false;
  };

  std::optional<std::string> takeMessage(std::string_view message);
  std::optional<std::string> takeServerMessage(std::string_view message);
  std::optional<std::string> takeSourceMessage(Source& source, std::string_view text);

  std::array<Source, 2> sources{
      {{"System audio", "system audio", {}, {}}, {"The microphone", "the microphone", {}, {}}}};
  bool capturing = false;
  bool serverIsGone = false;
  std::string step;
  std::string cause;
  std::string lastUntagged;
};

}  // namespace quenlor::recorder
