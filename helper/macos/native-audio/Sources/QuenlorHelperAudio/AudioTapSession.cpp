#include "AudioTapSession.h"

#include "AudioTapSessionError.h"
#include "Permissions.h"
#include "SidecarTrace.h"

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace quenlor {

AudioTapSession::AudioTapSession(StartRequest startRequest, platform::AudioPlatform& audioPlatform)
    : platform(audioPlatform),
      request(std::move(startRequest)),
      microphoneEngine(platform.makeEngine()),
      mixQueue(platform.makeQueue("com.quenlor.helper.audio.mix")),
      callbackQueue(platform.makeQueue("com.quenlor.helper.audio.tap")) {
  // Last, so that an existing file is replaced only after the rest of the session was created.
  writer = std::make_unique<WaveWriter>(request.outputPath);
}

void AudioTapSession::start() {
  const platform::MutexLock lock(stateLock);
  if (isSpent) throw AudioTapSessionError::sessionAlreadyStarted();
  if (request.mode != "mixed") throw AudioTapSessionError::mixedModeRequired();
  isSpent = true;

  logSidecarTrace("Ensuring system-audio capture access.");
  logSidecarTrace("System-audio capture access check completed.");

  logSidecarTrace("Ensuring microphone access.");
  Permissions::ensureMicrophoneAccess(platform.captureDevice());
  logSidecarTrace("Microphone access granted.");

  logSidecarTrace("Configuring microphone capture.");
  configureMicrophoneCapture();
  logSidecarTrace("Microphone capture configured.");

  logSidecarTrace("Configuring the Core Audio tap and aggregate device.");
  configureSystemTapCapture();
  logSidecarTrace("Core Audio tap and aggregate device configured.");

  logSidecarTrace("Starting the mixer timer.");
  startMixerTimer();
  logSidecarTrace("Mixer timer started.");

  startedAt = platform.currentTime();
  isRunning = true;
}

StopResult AudioTapSession::stop() {
  const platform::MutexLock lock(stateLock);
  if (!isRunning) {
    if (finalizedResult) return *finalizedResult;
    throw AudioTapSessionError::sessionNotRunning();
  }
  teardownCaptureGraph();
  std::exception_ptr failure;
  mixQueue->sync([&] { failure = finishMixing(); });
  isRunning = false;
  if (failure) {
    finalizedResult.reset();
    writer->discard();
    std::rethrow_exception(failure);
  }
  const std::chrono::duration<double> elapsed =
      startedAt ? platform.currentTime() - *startedAt : std::chrono::system_clock::duration::zero();
  finalizedResult = writer->finalize(elapsed.count());
  return *finalizedResult;
}

void AudioTapSession::discardIfUnfinished() noexcept {
  const platform::MutexLock lock(stateLock);
  if (isRunning || !finalizedResult) unsafeCleanupAndDiscard();
}

void AudioTapSession::unsafeCleanupAndDiscard() {
  try {
    teardownCaptureGraph();
  } catch (...) {
    // Only an allocation can fail here. The mixer must stop and the file must be removed anyway.
  }
  try {
    mixQueue->sync([this] {
      mixQueue->assertCurrent();
      stopMixerTimer();
      systemBacklog.removeAll();
      microphoneBacklog.removeAll();
    });
  } catch (...) {
    // As above.
  }
  finalizedResult.reset();
  writer->discard();
  isRunning = false;
  isSpent = true;
}

/// Releases whatever set-up has made, an IO block before its device and a device before its tap.
/// May run any number of times. Statuses are ignored: nothing could be done about a failure.
void AudioTapSession::teardownCaptureGraph() {
  stopMixerTimer();
  if (microphoneEngine->isRunning()) {
    microphoneEngine->removeTap(inputBus);
    microphoneEngine->stop();
  }
  platform::AudioHardware& hardware = platform.hardware();
  if (ioProcID) {
    hardware.stopDevice(aggregateDeviceID, *ioProcID);
    hardware.destroyIOProcID(aggregateDeviceID, *ioProcID);
    ioProcID.reset();
  }
  if (aggregateDeviceID != 0) hardware.destroyAggregateDevice(std::exchange(aggregateDeviceID, 0));
  if (systemTapID != 0) hardware.destroyProcessTap(std::exchange(systemTapID, 0));
}

/// The last work of a recording on mixQueue: writes all stored frames and returns the first
/// failure.
std::exception_ptr AudioTapSession::finishMixing() {
  mixQueue->assertCurrent();
  stopMixerTimer();
  try {
    drainAvailableFrames(std::nullopt, /*ignoreFailureGate=*/true);
  } catch (...) {
    recordAsyncFailure(std::current_exception());
  }
  return recordedAsyncFailure();
}

void AudioTapSession::recordAsyncFailure(std::exception_ptr failure) {
  const platform::MutexLock lock(failureLock);
  if (!asyncFailure) asyncFailure = std::move(failure);
}

std::exception_ptr AudioTapSession::recordedAsyncFailure() {
  const platform::MutexLock lock(failureLock);
  return asyncFailure;
}

}  // namespace quenlor
