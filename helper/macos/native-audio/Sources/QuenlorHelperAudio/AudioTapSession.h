#pragma once

#include "BridgePayloads.h"
#include "SampleBacklog.h"
#include "WaveWriter.h"
#include "platform/AudioPlatform.h"
#include "platform/ThreadSafety.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quenlor {

/// One recording. Owns all of its resources and is used once.
///
/// One thread, the control thread, calls start(), stop() and discardIfUnfinished(). Every path out
/// of a started or half-started session passes through stop() or discardIfUnfinished(): destroying
/// a session releases no hardware object.
///
/// Who touches what:
/// - control thread: set-up, start, stop, teardown
/// - callbackQueue: copy and conversion of system audio
/// - mixQueue: conversion of the microphone, both backlogs, the mixer's ticks, appending
///
/// stateLock is held for the whole of each call of the control thread, so that calls could also
/// come from several threads. Locks are taken in the order stateLock, waiting on mixQueue,
/// failureLock. Work on the queues never takes stateLock and never waits for another queue. All
/// callbacks hold the session weakly, so its last reference can be released on a queue's own
/// thread.
///
/// Each concern has a source file of its own: lifecycle (AudioTapSession.cpp), system tap set-up
/// (SystemTapCapture.cpp), system buffers (SystemBufferIntake.cpp), microphone
/// (MicrophoneCapture.cpp), conversion (FormatConversion.cpp) and mixing (Mixer.cpp).
class AudioTapSession final : public std::enable_shared_from_this<AudioTapSession> {
 public:
  /// How often the mixer runs.
  static constexpr std::chrono::milliseconds mixInterval{20};

  /// Connects to the platform's audio system, then creates the output file; starts nothing. Must be
  /// owned by a shared pointer. Throws PlatformError and what WaveWriter's constructor throws.
  AudioTapSession(StartRequest startRequest, platform::AudioPlatform& audioPlatform);

  /// Returns once capture runs. Throws AudioTapSessionError, PermissionError or PlatformError and
  /// undoes nothing then: the caller goes on to discardIfUnfinished(). After a call that was not
  /// refused for its mode, and after a discard, every further one is refused as already started.
  void start() EXCLUDES(stateLock);

  /// Ends capture, writes what is still stored and finalizes the file. Repeated calls give the same
  /// result. Throws AudioTapSessionError::sessionNotRunning, the first error of a queue's work (the
  /// file is gone then), or the writer's error.
  StopResult stop() EXCLUDES(stateLock);

  /// Tears everything down and deletes the file, unless a successful stop() finalized it.
  void discardIfUnfinished() noexcept EXCLUDES(stateLock);

 private:
  /// The microphone's bus on the engine's input node.
  static constexpr std::uint32_t inputBus = 0;

  // Lifecycle
  void unsafeCleanupAndDiscard() REQUIRES(stateLock);
  void teardownCaptureGraph() REQUIRES(stateLock);
  std::exception_ptr finishMixing();
  void recordAsyncFailure(std::exception_ptr failure) EXCLUDES(failureLock);
  std::exception_ptr recordedAsyncFailure() EXCLUDES(failureLock);

  // System tap set-up
  void configureSystemTapCapture() REQUIRES(stateLock);
  void createProcessTap() REQUIRES(stateLock);
  void createAggregateDevice() REQUIRES(stateLock);
  void startSystemIO() REQUIRES(stateLock);
  platform::AudioObjectID defaultOutputDeviceID();
  std::string readDeviceUID(platform::AudioObjectID deviceID);
  std::string readTapUID(platform::AudioObjectID tapID);
  void setTapList(platform::AudioObjectID deviceID, const std::vector<std::string>& tapUIDs);
  platform::AudioFormat readStreamFormat(platform::AudioObjectID deviceID);

  // System buffers
  void takeSystemBuffers(platform::AudioBufferList input);
  std::shared_ptr<platform::PCMBuffer> makeOwnedSystemBuffer(
      platform::AudioBufferList input, const platform::AudioFormat& sourceFormat)
      REQUIRES(*callbackQueue);
  static std::uint32_t frameCount(platform::AudioBufferList list,
                                  const platform::AudioFormat& format);
  void handleSystemAudio(std::shared_ptr<platform::PCMBuffer> buffer);
  void appendSystemBuffer(const platform::PCMBuffer& buffer);

  // Microphone
  void configureMicrophoneCapture() REQUIRES(stateLock);
  void handleMicrophoneBuffer(std::shared_ptr<platform::PCMBuffer> buffer);
  void convertAndAppendMicrophoneBuffer(const std::shared_ptr<platform::PCMBuffer>& buffer);

  // Conversion
  std::shared_ptr<platform::PCMBuffer> convert(
      const std::shared_ptr<platform::PCMBuffer>& buffer,
      std::shared_ptr<platform::AudioConverter>& converter);

  // Mixing
  void startMixerTimer();
  void stopMixerTimer();
  void mixerTick();
  void drainAvailableFrames(std::optional<std::int64_t> limit, bool ignoreFailureGate)
      REQUIRES(*mixQueue);

  platform::AudioPlatform& platform;
  const StartRequest request;
  /// Appends come from mixQueue only. Finalizing and discarding come from the control thread, once
  /// the timer is stopped and the last work that appends is done.
  std::unique_ptr<WaveWriter> writer;
  const std::unique_ptr<platform::AudioEngine> microphoneEngine;
  const std::shared_ptr<platform::DispatchQueue> mixQueue;
  const std::shared_ptr<platform::DispatchQueue> callbackQueue;
  platform::Mutex failureLock;
  platform::Mutex stateLock;
  /// The hardware objects that exist; 0 or absent if there is none.
  platform::AudioObjectID systemTapID GUARDED_BY(stateLock) = 0;
  platform::AudioObjectID aggregateDeviceID GUARDED_BY(stateLock) = 0;
  std::optional<platform::AudioDeviceIOProcID> ioProcID GUARDED_BY(stateLock);
  /// Accessed under stateLock, and by the last work on mixQueue while the control thread waits for
  /// it.
  std::unique_ptr<platform::DispatchTimer> mixTimer;
  /// Set before the IO block is registered and not changed while it can run.
  std::optional<platform::AudioFormat> systemFormat;
  std::shared_ptr<platform::AudioConverter> systemConverter GUARDED_BY(*callbackQueue);
  /// Set before the engine starts; from then on accessed only on mixQueue.
  std::shared_ptr<platform::AudioConverter> microphoneConverter;
  SampleBacklog systemBacklog GUARDED_BY(*mixQueue);
  SampleBacklog microphoneBacklog GUARDED_BY(*mixQueue);
  std::optional<std::chrono::system_clock::time_point> startedAt GUARDED_BY(stateLock);
  std::optional<StopResult> finalizedResult GUARDED_BY(stateLock);
  bool isRunning GUARDED_BY(stateLock) = false;
  /// Whether start() or a discard was called before: no further start() is allowed.
  bool isSpent GUARDED_BY(stateLock) = false;
  /// The first error of a queue's work; later ones are dropped. While it is set, buffers are
  /// dropped and ticks write nothing.
  std::exception_ptr asyncFailure GUARDED_BY(failureLock);
};

}  // namespace quenlor
