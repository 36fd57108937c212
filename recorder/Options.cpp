#include "recorder/Options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstdlib>
#include <ctime>
#include <system_error>

namespace quenlor::recorder {

namespace {

/// recording-2026-03-05-140709.wav, in local time.
std::string nameAfterNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 40> text{};
  std::strftime(text.data(), text.size(), "recording-%Y-%m-%d-%H%M%S.wav", &local);
  return text.data();
}

/// The programs are built and installed side by side. Where a program cannot know its own place, a
/// bare name has PATH searched.
std::filesystem::path sidecarBesideThisProgram() {
  std::error_code unknown;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", unknown);
  return program.parent_path() / "QuenlorHelperAudio";
}

/// Which options there are, and where their values go.
void declare(CLI::App& app, Options& options) {
  app.set_version_flag("--version", "quenlor-record " QUENLOR_VERSION);
  app.add_option("FILE", options.file,
                 "The recording to make; named after date and time if left out");
  app.add_option("--title", options.title, "Names the recording on the sound server")
      ->capture_default_str();
  app.add_option("--seconds", options.seconds, "Stops after so many seconds");
  app.add_option("--sidecar", options.sidecar,
                 "The program that records; the one beside quenlor-record if left out");
  CLI::Option* json =
      app.add_flag("--json", options.json, "Prints the sidecar's replies, and nothing else");
  app.add_flag("--quiet", options.quiet, "Prints errors only")->excludes(json);
  app.add_flag("--force", options.force, "Replaces an existing file");
}

}  // namespace

Options parseOptions(int argumentCount, char** arguments) {
  CLI::App app("Records what the computer plays and what the microphone hears in one WAV file.",
               "quenlor-record");
  Options options;
  options.file = nameAfterNow();
  options.sidecar = sidecarBesideThisProgram();
  declare(app, options);
  try {
    app.parse(argumentCount, arguments);
    // Written so that what is not a number is refused too.
    if (options.seconds && !(*options.seconds > 0))
      throw CLI::ValidationError("--seconds", "must be more than 0");
  } catch (const CLI::ParseError& end) {
    std::exit(app.exit(end));
  }
  return options;
}

}  // namespace quenlor::recorder
