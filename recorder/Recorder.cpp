#include "recorder/Recorder.h"

#include "WaveWriterError.h"
#include "recorder/Format.h"
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
#include <sys/wait.h>

namespace quenlor::recorder {

namespace {

using namespace std::chrono_literals;

constexpr auto timeBetweenRedraws = 50ms;
/// Where nothing is drawn.
constexpr auto timeBetweenLooks = 500ms;
constexpr auto timeBetweenDiskChecks = 1s;
/// What takes longer is explained.
constexpr auto shortWait = 500ms;

std::string inWords(const StopResult& result) {
  std::ostringstream words;
  words << std::fixed << std::setprecision(2) << result.durationSeconds << " s ("
        << formatSize(result.sizeBytes) << ')';
  return words.str();
}

std::string nameOf(const std::filesystem::path& path) {
  return printable(path.string());
}

void printError(const std::string& text) {
  std::cerr << "quenlor-record: " << text << '\n';
}

std::optional<ScratchFolder> scratchFolder(const Options& options) {
  return options.test ? std::optional<ScratchFolder>(std::in_place) : std::nullopt;
}

}  // namespace

Recorder::Recorder(const Options& wanted)
    : options(wanted),
      scratch(scratchFolder(wanted)),
      file(scratch ? scratch->path() / "levels.wav" : options.file, options.force),
      sidecar(wanted.sidecar) {
  const StartRequest request{
      .mode = "mixed", .outputPath = file.path().string(), .title = options.title};
  sidecar.write(request.encode() + '\n');
}

int Recorder::run() {
  while (sidecar.isTalking()) {
    if (!stopped) input.takeKeys();
    waitForEvents();
    if (isRecording())
      supervise();
    else
      showWhatIsAwaited();
  }
  screen.wipe();
  return conclude(sidecar.waitForExit());
}

void Recorder::waitForEvents() {
  std::array<pollfd, 4> watched{{{signals.descriptor(), POLLIN, 0},
                                 {stopped ? -1 : input.descriptor(), POLLIN, 0},
                                 {sidecar.replies().descriptor(), POLLIN, 0},
                                 {sidecar.trace().descriptor(), POLLIN, 0}}};
  if (::poll(watched.data(), watched.size(), longestWait()) < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "Waiting failed");
  if (watched[3].revents != 0)
    for (const std::string& line : sidecar.trace().readLines()) takeTrace(line);
  if (watched[2].revents != 0)
    for (const std::string& line : sidecar.replies().readLines()) takeReply(line);
  reportNotices();
  if (watched[1].revents != 0) takeInput();
  if (watched[0].revents != 0) takeSignals();
}

/// In milliseconds; -1 for as long as it takes.
int Recorder::longestWait() const {
  std::chrono::duration<double> wait = timeBetweenLooks;
  if (!isRecording()) {
    wait = askedAt + shortWait - Clock::now();
    if (wait <= 0s) return -1;
  } else {
    if (options.printsWords() && screen.canDraw()) wait = timeBetweenRedraws;
    if (options.seconds)
      wait = std::min(wait, std::chrono::duration<double>(*options.seconds) - elapsed());
  }
  return std::max(0, static_cast<int>(std::ceil(wait / 1ms)));
}

void Recorder::takeTrace(const std::string& line) {
  const bool wasCapturing = trace.isCapturing();
  const std::optional<std::string> notice = trace.take(line);
  // What came before belongs to the start, which has succeeded.
  if (trace.isCapturing() && !wasCapturing) notices.clear();
  if (notice) notices.push_back(*notice);
}

void Recorder::reportNotices() {
  if (isRecording())
    for (const std::string& notice : notices) notify(notice);
  if (isRecording() || stopped || !trace.isCapturing()) notices.clear();
}

void Recorder::takeReply(const std::string& line) {
  if (options.json) screen.printLine(line);
  if (meter) {
    result = StopResult::decode(line);
    return;
  }
  [[maybe_unused]] const ReadyFrame ready = ReadyFrame::decode(line);
  begin();
}

void Recorder::takeInput() {
  switch (input.read()) {
    case StandardInput::Request::none:
      return;
    case StandardInput::Request::stopByKey:
      return abandonOrStop();
    case StandardInput::Request::stopByEnd:
      return stop();
  }
}

void Recorder::takeSignals() {
  while (const int number = signals.takeSignal()) {
    if (number == SIGTSTP)
      suspend();
    else if (number != SIGCONT)  // That one only ends the wait.
      abandonOrStop();
  }
}

void Recorder::begin() {
  readyTime = Clock::now();
  meter.emplace(file.path());
  space.emplace(file.path());
  watch.emplace(readyTime);
  // Whoever has the file open can go on with it.
  if (scratch) scratch->remove();
  if (!stopped) superviseDisk();
  hadRoom = !diskError;
  if (stopped || !options.printsWords()) return;
  screen.printLine((scratch ? "Checking the levels; nothing is kept."
                            : "Recording to " + nameOf(file.path()) + '.') +
                   howToStop());
  if (const std::string devices = trace.devices(); !devices.empty()) screen.printLine(devices);
}

std::string Recorder::howToStop() const {
  if (input.hasKeys()) return " q or Ctrl-C stops.";
  // Keys of a terminal do not reach the background.
  return screen.isTerminal() && !screen.canDraw() ? "" : " Ctrl-C stops.";
}

void Recorder::supervise() {
  if (options.seconds && elapsed().count() >= *options.seconds) return stop();
  superviseDisk();
  if (isRecording() && options.printsWords()) superviseSound();
}

void Recorder::superviseDisk() {
  if (Clock::now() - diskCheckedAt < timeBetweenDiskChecks) return;
  diskCheckedAt = Clock::now();
  diskError = space->allocateAhead();
  if (diskError) stop();
}

void Recorder::superviseSound() {
  meter->readNewFrames();
  for (const std::string& notice : watch->look(Clock::now(), *meter, space->secondsLeft()))
    notify(notice);
  const RecordingStatus status{.elapsed = std::chrono::floor<std::chrono::seconds>(elapsed()),
                               .sizeBytes = meter->sizeBytes(),
                               .levels = meter->levels()};
  screen.draw(renderStatusLine(status, screen.lineWidth()));
}

void Recorder::showWhatIsAwaited() {
  if (!options.printsWords() || Clock::now() - askedAt < shortWait) return;
  const bool isKnown = !trace.awaited().empty();
  screen.draw("Waiting for " + (isKnown ? trace.awaited() : nameOf(options.sidecar.filename())) +
              " ...");
}

/// The recording goes on meanwhile.
void Recorder::suspend() {
  screen.wipe();
  input.giveBack();
  SignalPipe::suspend();
}

/// Nothing is lost before the sidecar is ready, so nobody needs to wait for it.
void Recorder::abandonOrStop() {
  if (!meter) {
    abandoned = true;
    sidecar.kill();
  }
  stop();
}

void Recorder::stop() {
  stopped = true;
  askedAt = Clock::now();
  sidecar.closeInput();
  // A second Ctrl-C ends this program at once.
  input.giveBack();
  screen.wipe();
}

int Recorder::conclude(int sidecarStatus) {
  constexpr int stoppedForWantOfSpace = 3;
  if (sidecarStatus != 0 || !result) {
    reportFailure(sidecarStatus);
    return 1;
  }
  if (!hadRoom) {
    discard();
    return 1;
  }
  file.complete();
  if (options.printsWords()) reportResult();
  if (!diskError) return 0;
  printError("There is no room for more: " + diskError.message() + ". The recording was stopped" +
             (scratch ? "." : " and is kept."));
  return stoppedForWantOfSpace;
}

void Recorder::reportResult() {
  if (scratch) {
    meter->readNewFrames();
    screen.printLine("Heard " + inWords(*result) + ", at most " +
                     formatDecibels(meter->highestPeaks()[0]) + " dBFS on the left and " +
                     formatDecibels(meter->highestPeaks()[1]) + " dBFS on the right.");
  } else {
    screen.printLine("Recorded " + inWords(*result) + " to " + nameOf(file.path()));
  }
  if (const std::string silence = trace.insertedSilence(); !silence.empty())
    screen.printLine(silence);
}

void Recorder::reportFailure(int sidecarStatus) {
  const bool saidWhy = WIFEXITED(sidecarStatus) && sidecarStatus != 0 && !trace.error().empty();
  if (abandoned)
    printError("Stopped before the recording began.");
  else if (const std::string reason = creationError(); !reason.empty())
    printError(nameOf(file.path()) + " cannot be made: " + reason);
  else
    for (const std::string& line : trace.failure()) printError(line);
  if (!abandoned && !saidWhy)
    printError(nameOf(options.sidecar.filename()) + ' ' + describeExit(sidecarStatus) + '.');
  settleFailedFile();
}

/// The few samples until the stop are not worth an earlier recording.
void Recorder::discard() {
  printError("There is no room for a recording: " + diskError.message() + '.');
  std::error_code code;
  std::filesystem::remove(file.path(), code);
  settleFailedFile();
}

/// The sidecar does not say why it could not make the file.
std::string Recorder::creationError() const {
  const bool isCreationError =
      trace.error() == WaveWriterError::outputFileHandleUnavailable().errorDescription();
  return isCreationError ? file.creationError() : "";
}

void Recorder::settleFailedFile() {
  if (const auto unfinished = file.fail())
    printError("What was recorded can be completed: quenlor-wav-repair " + nameOf(*unfinished));
  if (file.earlier().empty()) return;
  const bool isBack = file.earlier() == file.path();
  printError("The earlier " + nameOf(file.path()) + " is " +
             (isBack ? "back." : "now " + nameOf(file.earlier()) + '.'));
}

/// Scripts get none: with --json and --quiet.
void Recorder::notify(const std::string& notice) {
  if (!options.printsWords()) return;
  screen.printLine(formatTime(std::chrono::floor<std::chrono::seconds>(elapsed())) + "  " + notice);
}

}  // namespace quenlor::recorder
