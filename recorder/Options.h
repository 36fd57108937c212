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
};

/// Ends the program for --help, --version and what cannot be understood.
Options parseOptions(int argumentCount, char** arguments);

}  // namespace quenlor::recorder
