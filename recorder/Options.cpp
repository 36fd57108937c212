#include "recorder/Options.h"

#include "JSONCoding.h"
#include "recorder/ProgramPath.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <regex>

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
  return programPath().parent_path() / "QuenlorHelperAudio";
}

constexpr const char* footer =
    "The meters show the left and right channel of the mix of both sources, so they do not tell "
    "the\n"
    "sources apart. q, Ctrl-D or Ctrl-C stops the recording; Ctrl-Z and bg leave it running.\n";

bool isUTF8(const std::string& text) {
  try {
    JSONEncoder encoder;
    encoder.add("text", text);
    return !encoder.encoded().empty();
  } catch (const JSONEncodingError&) {
    return false;
  }
}

/// The sidecar's messages are in UTF-8: no other bytes can be said in them.
std::string refuseUnlessUTF8(const std::string& text) {
  return isUTF8(text) ? "" : "not UTF-8, as names and titles have to be";
}

std::string refuseStandardOutput(const std::string& file) {
  return file == "-" ? "- does not stand for standard output: a recording needs a file" : "";
}

std::string refuseUnlessDuration(const std::string& text) {
  return parseDuration(text) ? "" : "not a time above 0, such as 90, 1.5, 1:30 or 1:02:03";
}

/// Which options there are, and where their values go.
void declare(CLI::App& app, Options& options, std::string& duration) {
  app.set_version_flag("-V,--version", "quenlor-record " QUENLOR_VERSION, "Prints the version");
  app.set_help_flag("-h,--help", "Prints this");
  app.footer(footer);
  CLI::Option* file = app.add_option(
      "FILE", options.file, "The recording to make; named after date and time if left out");
  file->check(refuseStandardOutput)->check(refuseUnlessUTF8);
  app.add_option("-t,--title", options.title, "Names the recording on the sound server")
      ->capture_default_str()
      ->check(refuseUnlessUTF8);
  app.add_option("-d,--seconds", duration,
                 "Stops after this time: seconds, minutes:seconds or hours:minutes:seconds")
      ->type_name("TIME")
      ->check(refuseUnlessDuration);
  app.add_option("-s,--sidecar", options.sidecar,
                 "The program that records; the one beside quenlor-record if left out");
  CLI::Option* json =
      app.add_flag("-j,--json", options.json, "Prints the sidecar's replies, and nothing else");
  app.add_flag("-q,--quiet", options.quiet, "Prints errors only")->excludes(json);
  CLI::Option* force = app.add_flag(
      "-f,--force", options.force, "Replaces an existing file, once the new recording is complete");
  app.add_flag("-T,--test", options.test, "Checks the levels, and keeps no file")
      ->excludes(file)
      ->excludes(force);
}

}  // namespace

std::optional<double> parseDuration(const std::string& text) {
  static const std::regex form(R"((?:(?:(\d{1,6}):)?(\d{1,6}):)?(\d{1,9}(?:\.\d*)?|\.\d+))");
  std::smatch parts;
  if (!std::regex_match(text, parts, form)) return std::nullopt;
  const auto number = [&parts](std::size_t index) {
    return parts[index].matched ? std::stod(parts[index]) : 0.0;
  };
  constexpr double sixty = 60;
  if (parts[1].matched && number(2) >= sixty) return std::nullopt;
  if (parts[2].matched && number(3) >= sixty) return std::nullopt;
  const double seconds = (number(1) * sixty + number(2)) * sixty + number(3);
  return seconds > 0 ? std::optional(seconds) : std::nullopt;
}

Options parseOptions(int argumentCount, char** arguments) {
  CLI::App app("Records what the computer plays and what the microphone hears in one WAV file.",
               "quenlor-record");
  Options options;
  std::string duration;
  options.file = nameAfterNow();
  options.sidecar = sidecarBesideThisProgram();
  declare(app, options, duration);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& end) {
    constexpr int usageError = 2;
    std::exit(app.exit(end) == 0 ? 0 : usageError);
  }
  options.seconds = parseDuration(duration);
  return options;
}

}  // namespace quenlor::recorder
