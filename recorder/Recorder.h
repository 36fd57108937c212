#pragma once

#include "BridgePayloads.h"
#include "recorder/DiskSpace.h"
#include "recorder/LevelMeter.h"
#include "recorder/Options.h"
#include "recorder/OutputFile.h"
#include "recorder/RecordingWatch.h"
#include "recorder/ScratchFolder.h"
#include "recorder/Screen.h"
#include "recorder/SidecarProcess.h"
#include "recorder/SignalPipe.h"
#include "recorder/StandardInput.h"
#include "recorder/TraceInterpreter.h"

#include <chrono>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace quenlor::recorder {

/// Makes one recording: starts the sidecar, shows how it goes, and stops it. All on one thread,
/// which waits in one place for whatever comes first.
class Recorder {
 public:
  /// Starts the sidecar and sends it the request. Throws std::runtime_error where that fails, or
  /// where the file may not be made.
  explicit Recorder(const Options& wanted);

  /// Returns, once the sidecar has ended, the exit status: 0 where the recording is complete, 1
  /// where it failed, 3 where it is complete but was stopped for want of disk space. Throws
  /// JSONDecodingError where the sidecar does not answer as one does.
  int run();

 private:
  using Clock = RecordingWatch::Clock;

  void waitForEvents();
  int longestWait() const;
  void takeTrace(const std::string& line);
  void takeReply(const std::string& line);
  void takeInput();
  void takeSignals();
  void reportNotices();
  void begin();
  std::string howToStop() const;
  void supervise();
  void superviseDisk();
  void superviseSound();
  void showWhatIsAwaited();
  void suspend();
  void abandonOrStop();
  void stop();
  int conclude(int sidecarStatus);
  void reportResult();
  void reportFailure(int sidecarStatus);
  void discard();
  std::string creationError() const;
  void settleFailedFile();

  /// Prints a line with the time in the recording.
  void notify(const std::string& notice);
  bool isRecording() const { return meter && !stopped; }
  std::chrono::duration<double> elapsed() const { return Clock::now() - readyTime; }

  const Options& options;
  SignalPipe signals;
  /// Where no file is to be kept.
  std::optional<ScratchFolder> scratch;
  // Destroyed after the sidecar has ended.
  OutputFile file;
  std::optional<DiskSpace> space;
  StandardInput input;
  Screen screen;
  SidecarProcess sidecar;
  TraceInterpreter trace;
  /// Not reported yet: the trace may be faster than the ready line.
  std::vector<std::string> notices;

  /// When what the user waits for was asked for: the start, then the stop.
  Clock::time_point askedAt = Clock::now();
  /// There from the ready line on, as is watch.
  std::optional<LevelMeter> meter;
  std::optional<RecordingWatch> watch;
  Clock::time_point readyTime;
  Clock::time_point diskCheckedAt;
  bool stopped = false;
  bool abandoned = false;
  std::error_code diskError;
  /// At the start, for a recording worth keeping.
  bool hadRoom = true;
  std::optional<StopResult> result;
};

}  // namespace quenlor::recorder
