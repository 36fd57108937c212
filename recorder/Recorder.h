#pragma once

#include "BridgePayloads.h"
#include "recorder/LevelMeter.h"
#include "recorder/Options.h"
#include "recorder/SidecarProcess.h"
#include "recorder/SignalPipe.h"
#include "recorder/Terminal.h"

#include <chrono>
#include <optional>
#include <string>

namespace quenlor::recorder {

/// Makes one recording: starts the sidecar, shows how it goes, and stops it. All on one thread,
/// which waits in one place for whatever comes first.
class Recorder {
 public:
  /// Starts the sidecar and sends it the request. Throws std::system_error where that fails, and
  /// JSONEncodingError for a file or title that is not UTF-8.
  explicit Recorder(const Options& wanted);

  /// Returns, once the sidecar has ended, the exit status: 0 where the recording is complete.
  /// Throws JSONDecodingError where the sidecar does not answer as one does.
  int run();

 private:
  using Clock = std::chrono::steady_clock;

  void waitForEvents();
  int longestWait() const;
  void takeInput();
  void takeSignals();
  void takeReply(const std::string& line);
  void begin();
  void superviseRecording();
  void suspend();
  void stop();
  int conclude(int sidecarStatus);

  bool isRecording() const { return meter && !stopped; }
  double elapsedSeconds() const;
  bool printsWords() const { return !options.json && !options.quiet; }

  const Options& options;
  SignalPipe signals;
  Terminal terminal;
  SidecarProcess sidecar;
  /// There from the ready line on.
  std::optional<LevelMeter> meter;
  Clock::time_point readyTime;
  bool stopped = false;
  std::optional<StopResult> result;
  std::string lastTraceLine;
};

}  // namespace quenlor::recorder
