#include "recorder/TraceInterpreter.h"

#include "recorder/Format.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace quenlor::recorder {

namespace {

/// How the sidecar's own messages begin, and what it waits for until the next one.
struct Step {
  std::string_view message;
  std::string_view awaits;
};

constexpr std::string_view readyMessage = "Audio tap session reached ready state.";

constexpr std::string_view sidecar = "the sidecar";
constexpr std::string_view server = "the sound server";
constexpr std::string_view microphone = "the microphone";
constexpr std::string_view systemAudio = "system audio";

// Of two that fit, the first counts.
constexpr auto steps = std::to_array<Step>({
    {"Received start request frame from the helper.", sidecar},
    {"Decoded start request for title: ", sidecar},
    {"Creating the audio tap session.", server},
    {"Starting the audio tap session.", server},
    {"Ensuring system-audio capture access.", "permission to record system audio"},
    {"System-audio capture access check completed.", server},
    {"Ensuring microphone access.", "permission to use the microphone"},
    {"Microphone access granted.", microphone},
    {"Configuring microphone capture.", microphone},
    {"Reading the microphone input node format.", microphone},
    {"Creating the microphone converter.", microphone},
    {"Installing the microphone tap.", microphone},
    {"Starting the microphone engine.", microphone},
    {"Microphone engine started.", systemAudio},
    {"Microphone capture configured.", systemAudio},
    {"Configuring the Core Audio tap and aggregate device.", systemAudio},
    {"Calling Audio", systemAudio},
    {"AudioHardwareCreate", systemAudio},
    {"AudioDevice", systemAudio},
    {"Reading the tap UID.", systemAudio},
    {"Setting the aggregate-device tap list.", systemAudio},
    {"Reading the aggregate-device stream format.", systemAudio},
    {"Core Audio tap and aggregate device configured.", sidecar},
    {"Starting the mixer timer.", sidecar},
    {"Mixer timer started.", sidecar},
    {readyMessage, sidecar},
    {"Stop signal received. Finalizing capture.", "the recording to be completed"},
});

/// Removes prefix from the front of text. False where it does not stand there.
bool skip(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// Removes the tag and the time of a trace line. False for any other line.
bool skipTag(std::string_view& line) {
  if (!skip(line, "[QuenlorHelperAudio] ")) return false;
  const std::size_t blank = line.find(' ');
  if (blank != std::string_view::npos) line.remove_prefix(blank + 1);
  return true;
}

/// The text in front of the last place where end stands; all of it where it stands nowhere.
std::string upToLast(std::string_view end, std::string_view text) {
  return printable(text.substr(0, text.rfind(end)));
}

}  // namespace

std::optional<std::string> TraceInterpreter::take(std::string_view line) {
  if (skipTag(line)) {
    // It was part of a title: an error is the last line.
    lastUntagged.clear();
    return takeMessage(line);
  }
  lastUntagged = printable(line);
  return lastUntagged;
}

std::optional<std::string> TraceInterpreter::takeMessage(std::string_view message) {
  const auto isMessage = [message](const Step& each) { return message.starts_with(each.message); };
  if (const auto found = std::ranges::find_if(steps, isMessage); found != steps.end()) {
    step = found->awaits;
    if (message == readyMessage) capturing = true;
    return std::nullopt;
  }
  for (Source& source : sources)
    if (std::string_view rest = message; skip(rest, source.nameInTrace))
      return takeSourceMessage(source, rest);
  return takeServerMessage(message);
}

std::optional<std::string> TraceInterpreter::takeServerMessage(std::string_view message) {
  std::string_view rest = message;
  if (rest == "The sound server is back.") {
    serverIsGone = false;
    cause.clear();
    return std::string(rest);
  }
  cause = printable(message);
  if (!skip(rest, "The sound server ended the connection: ")) return cause;
  serverIsGone = true;
  return "The sound server is gone; silence is recorded until it is back. " + printable(rest);
}

/// text is what follows the source's name.
std::optional<std::string> TraceInterpreter::takeSourceMessage(Source& source,
                                                               std::string_view text) {
  const std::string name(source.nameInTrace);
  if (skip(text, " is recorded from ")) {
    source.device = upToLast(".", text);
    cause.clear();
    if (!capturing) return std::nullopt;  // It is among the devices that the start tells.
    return name + " is recorded from " + source.device + '.';
  }
  if (skip(text, ": silence of ")) {
    source.silence = upToLast(" s ", text);
    return std::nullopt;
  }
  if (skip(text, " is interrupted: ")) {
    source.isInterrupted = true;
    if (serverIsGone) return std::nullopt;  // That says it of both.
    cause = name + " is interrupted: " + printable(text);
    return name + " is interrupted; silence is recorded meanwhile. " + printable(text);
  }
  if (skip(text, " comes from ")) {
    source.device = upToLast(" now", text);
    cause.clear();
    const bool wasInterrupted = std::exchange(source.isInterrupted, false);
    return name + (wasInterrupted ? " is back: it" : "") + " comes from " + source.device + " now.";
  }
  return cause = name + printable(text);
}

std::string TraceInterpreter::devices() const {
  std::string sentence;
  for (const Source& source : sources)
    if (!source.device.empty())
      sentence += (sentence.empty() ? std::string(source.nameInTrace) + " is recorded"
                                    : ", " + std::string(source.nameInSentence)) +
                  " from " + source.device;
  return sentence.empty() ? sentence : sentence + '.';
}

std::string TraceInterpreter::insertedSilence() const {
  std::string sentence;
  for (const Source& source : sources)
    if (!source.silence.empty())
      sentence += (sentence.empty() ? "Silence was inserted for lost sound: " : ", ") +
                  source.silence + " s of " + std::string(source.nameInSentence);
  return sentence.empty() ? sentence : sentence + '.';
}

std::vector<std::string> TraceInterpreter::failure() const {
  std::vector<std::string> lines;
  if (!cause.empty() && lastUntagged.find(cause) == std::string::npos) lines.push_back(cause);
  if (!lastUntagged.empty()) lines.push_back(lastUntagged);
  return lines;
}

}  // namespace quenlor::recorder
