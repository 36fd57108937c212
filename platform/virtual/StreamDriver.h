#pragma once

#include "platform/AudioEngine.h"
#include "platform/AudioHardware.h"
#include "platform/ThreadSafety.h"
#include "platform/virtual/Pace.h"
#include "platform/virtual/ToneSource.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace quenlor::platform::virtualhost {

/// The receiver of system audio: an IO block and the queue to run it on.
struct SystemReceiver {
  std::shared_ptr<DispatchQueue> queue;
  AudioHardware::IOBlock block;
};

/// Delivers the virtual devices' samples to the registered blocks.
///
/// Both streams start in startSystem(): before it, a running engine delivers nothing. Each stream
/// delivers its first kFirstBurst in one buffer, the system first and the microphone right after
/// it, and from then on one buffer every kCycle. The first burst is the mixer's prefill, since the
/// mixer pads the shorter source with silence every 20 ms. It is longer than the resampler's
/// latency at 8 kHz and above; at lower rates it may be shorter, and then tones have gaps. After n
/// cycles a stream has delivered floor(n * rate / 100) frames. Late cycles are delivered together.
///
/// All functions are called from the control thread, not from a block, unless stated otherwise.
class StreamDriver {
 public:
  static constexpr std::chrono::milliseconds kCycle{10};
  static constexpr std::chrono::milliseconds kFirstBurst{80};
  static constexpr std::uint64_t kCyclesPerSecond = 100;

  StreamDriver(Pace& drivingPace, const VirtualSettings& settings);
  ~StreamDriver();

  /// Starts both streams at frame 0. The receiver gets the system's.
  void startSystem(std::shared_ptr<const SystemReceiver> receiver);
  /// Ends both streams. No receiver is called after this returns.
  void stopSystem();

  void startMicrophone(std::shared_ptr<const AudioEngine::TapBlock> tap);
  /// tap is not called after this returns. Does nothing if another tap was started.
  void stopMicrophone(const std::shared_ptr<const AudioEngine::TapBlock>& tap);
  /// Like stopMicrophone(), but called from any thread and without waiting for a running call.
  void forgetMicrophone(const std::shared_ptr<const AudioEngine::TapBlock>& tap);

  /// Called from any thread.
  void setOutputSignal(Signal signal);
  void setMicrophoneSignal(Signal signal);

  /// Delivers these buffers to the running receiver, independent of the streams, and returns when
  /// it has returned. False if there is no receiver.
  [[nodiscard]] bool deliverSystem(AudioBufferList buffers);
  [[nodiscard]] bool deliverMicrophone(std::shared_ptr<PCMBuffer> buffer);

 private:
  using Tap = std::shared_ptr<const AudioEngine::TapBlock>;
  using Receiver = std::shared_ptr<const SystemReceiver>;

  struct Stream {
    explicit Stream(const DeviceSettings& device) : settings(device), tone(device) {}

    /// Returns a new buffer with the samples of the cycles [first, last).
    std::shared_ptr<PCMBuffer> cut(std::uint64_t first, std::uint64_t last, bool silent) const;

    DeviceSettings settings;
    ToneSource tone;
  };

  /// What the devices deliver next, and to which blocks.
  struct Turn {
    std::uint64_t firstCycle;
    std::uint64_t lastCycle;
    Receiver receiver;
    Tap tap;
    Signal outputSignal;
    Signal microphoneSignal;
  };

  Receiver runningReceiver() EXCLUDES(mutex);
  Tap runningTap() EXCLUDES(mutex);
  void deliverDue();
  Turn takeTurn() EXCLUDES(mutex);
  void waitForTurn() const;

  Pace& pace;
  /// The devices' own thread: all receivers are called as its work.
  const std::shared_ptr<DispatchQueue> deviceQueue;
  const std::optional<Stream> output;
  const std::optional<Stream> microphone;
  std::unique_ptr<DispatchTimer> timer;

  Mutex mutex;
  Receiver systemReceiver GUARDED_BY(mutex);
  Tap microphoneTap GUARDED_BY(mutex);
  Signal outputSignal GUARDED_BY(mutex);
  Signal microphoneSignal GUARDED_BY(mutex);
  std::chrono::nanoseconds startTime GUARDED_BY(mutex){0};
  std::uint64_t cyclesDelivered GUARDED_BY(mutex) = 0;
};

}  // namespace quenlor::platform::virtualhost
