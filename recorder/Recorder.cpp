#include "recorder/Recorder.h"

#include "recorder/StatusLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <iomanip>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

constexpr double secondsBetweenRedraws = 0.05;

std::string inWords(const StopResult& result, const std::filesystem::path& file) {
  std::ostringstream words;
  words << "Recorded " << std::fixed << std::setprecision(2) << result.durationSeconds << " s ("
        << result.sizeBytes << " bytes) to " << file.string() << '\n';
  return words.str();
}

}  // namespace

Recorder::Recorder(const Options& wanted) : options(wanted), sidecar(wanted.sidecar) {
  const StartRequest request{
      .mode = "mixed", .outputPath = options.file.string(), .title = options.title};
  sidecar.write(request.encode() + '\n');
}

int Recorder::run() {
  while (sidecar.isTalking()) {
    waitForEvents();
    if (isRecording()) superviseRecording();
  }
  terminal.giveBack();
  return conclude(sidecar.waitForExit());
}

void Recorder::waitForEvents() {
  std::array<pollfd, 4> watched{{{signals.descriptor(), POLLIN, 0},
                                 {stopped ? -1 : terminal.inputDescriptor(), POLLIN, 0},
                                 {sidecar.replies().descriptor(), POLLIN, 0},
                                 {sidecar.trace().descriptor(), POLLIN, 0}}};
  if (::poll(watched.data(), watched.size(), longestWait()) < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "Waiting failed");
  if (watched[3].revents != 0)
    for (const std::string& line : sidecar.trace().readLines()) lastTraceLine = line;
  if (watched[2].revents != 0)
    for (const std::string& line : sidecar.replies().readLines()) takeReply(line);
  if (watched[1].revents != 0) takeInput();
  if (watched[0].revents != 0) takeSignals();
}

/// In milliseconds; -1 for as long as it takes.
int Recorder::longestWait() const {
  if (!isRecording()) return -1;
  constexpr double anHour = 3600;
  double wait = terminal.canDraw() && printsWords() ? secondsBetweenRedraws : anHour;
  if (options.seconds) wait = std::min(wait, *options.seconds - elapsedSeconds());
  return std::max(0, static_cast<int>(std::ceil(wait * 1000)));
}

void Recorder::takeInput() {
  constexpr std::string_view stopKeys = "qQ\x04";  // The last is Ctrl-D.
  std::array<char, 64> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  const std::string_view typed(bytes.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
  if (typed.empty() || typed.find_first_of(stopKeys) != std::string_view::npos) stop();
}

void Recorder::takeSignals() {
  while (const int number = signals.takeSignal()) {
    if (number == SIGTSTP)
      suspend();
    else
      stop();
  }
}

void Recorder::takeReply(const std::string& line) {
  if (options.json) print(line + '\n');
  if (meter) {
    result = StopResult::decode(line);
    return;
  }
  [[maybe_unused]] const ReadyFrame ready = ReadyFrame::decode(line);
  begin();
}

void Recorder::begin() {
  meter.emplace(options.file);
  readyTime = Clock::now();
  if (stopped) return;
  if (printsWords())
    print("Recording to " + options.file.string() + ". " +
          (terminal.hasKeys() ? "q or Ctrl-C stops.\n" : "Ctrl-C stops.\n"));
  terminal.takeKeys();
}

void Recorder::superviseRecording() {
  const double elapsed = elapsedSeconds();
  if (options.seconds && elapsed >= *options.seconds) return stop();
  if (!terminal.canDraw() || !printsWords()) return;
  meter->readNewFrames();
  const RecordingStatus status{.elapsed = std::chrono::seconds(static_cast<long>(elapsed)),
                               .sizeBytes = meter->sizeBytes(),
                               .levels = meter->levels()};
  terminal.draw(renderStatusLine(status, terminal.lineWidth()));
}

/// The recording goes on meanwhile.
void Recorder::suspend() {
  terminal.giveBack();
  ::raise(SIGSTOP);
  if (isRecording()) terminal.takeKeys();
}

void Recorder::stop() {
  stopped = true;
  terminal.giveBack();
  sidecar.closeInput();
}

int Recorder::conclude(int sidecarStatus) {
  if (sidecarStatus == 0 && result) {
    if (printsWords()) print(inWords(*result, options.file));
    return 0;
  }
  if (!lastTraceLine.empty()) std::cerr << lastTraceLine << '\n';
  std::cerr << options.sidecar.filename().string() << ' ' << describeExit(sidecarStatus) << ".\n";
  if (WIFSIGNALED(sidecarStatus) && meter)
    std::cerr << "What was recorded can be completed: quenlor-wav-repair " << options.file.string()
              << '\n';
  return 1;
}

double Recorder::elapsedSeconds() const {
  return std::chrono::duration<double>(Clock::now() - readyTime).count();
}

}  // namespace quenlor::recorder
