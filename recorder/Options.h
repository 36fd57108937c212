#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quenlor::recorder {

/// What the command line asks for.
struct Options {
  std::filesystem::path file;
  std::string title = "Recording";
  /// Without it, until the user stops the recording.
  std::optional<double> seconds;
  std::filesystem::path sidecar;
  bool json = false;
  bool quiet = false;
  bool force = false;
  /// Levels are shown, and no file is kept.
  bool test = false;

  bool printsWords() const { return !json && !quiet; }
};

/// The seconds in "90", "1.5", "1:30" or "1:02:03.5"; nothing for any other text, and for 0.
std::optional<double> parseDuration(const std::string& text);

/// Ends the program for --help and --version (status 0) and for what it cannot use (status 2).
Options parseOptions(int argumentCount, char** arguments);

}  // namespace quenlor::recorder
