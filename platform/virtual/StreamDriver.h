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

/// Who takes the system's samples: an IO block and the queue to run it on.
struct SystemReceiver {
  std::shared_ptr<DispatchQueue> queue;
  AudioHardware::IOBlock block;
};

/// Hands the virtual devices' samples to whoever registered for them.
///
/// Both streams start with the device: until startSystem() an engine that runs delivers nothing.
/// After kFirstBurst each stream hands over all it has in one buffer, the system first and the
/// microphone right after it; from then on one buffer each every kCycle. That reserve keeps both
/// tones whole: a mixer that drains every 20 ms pads whichever source is short at that moment.
/// After n cycles a stream has delivered floor(n * rate / 100) frames. Cycles that come late are
/// handed over together.
///
/// The functions are called from the control thread, and from no block, unless they say otherwise.
class StreamDriver {
 public:
  static constexpr std::chrono::milliseconds kCycle{10};
  static constexpr std::chrono::milliseconds kFirstBurst{80};
  static constexpr std::uint64_t kCyclesPerSecond = 100;

  StreamDriver(Pace& drivingPace, const VirtualSettings& settings);
  ~StreamDriver();

  /// Starts both streams at frame 0; the receiver takes the system's.
  void startSystem(std::shared_ptr<const SystemReceiver> receiver);
  /// Ends both streams. Once this has returned, no receiver is called any more.
  void stopSystem();

  void startMicrophone(std::shared_ptr<const AudioEngine::TapBlock> tap);
  /// Once this has returned, tap is not called any more. Does nothing for any other tap.
  void stopMicrophone(const std::shared_ptr<const AudioEngine::TapBlock>& tap);
  /// As stopMicrophone(), but called from anywhere and without waiting for a call under way.
  void forgetMicrophone(const std::shared_ptr<const AudioEngine::TapBlock>& tap);

  /// Called from any thread.
  void setOutputSignal(Signal signal);
  void setMicrophoneSignal(Signal signal);

  /// Hands these buffers to the running receiver now, whatever the streams do, and returns when it
  /// has taken them. False where there is none.
  [[nodiscard]] bool deliverSystem(AudioBufferList buffers);
  [[nodiscard]] bool deliverMicrophone(std::shared_ptr<PCMBuffer> buffer);

 private:
  using Tap = std::shared_ptr<const AudioEngine::TapBlock>;
  using Receiver = std::shared_ptr<const SystemReceiver>;

  struct Stream {
    explicit Stream(const DeviceSettings& device) : settings(device), tone(device) {}

    /// The samples of the cycles from first up to last, in a buffer of their own.
    std::shared_ptr<PCMBuffer> cut(std::uint64_t first, std::uint64_t last, bool silent) const;

    DeviceSettings settings;
    ToneSource tone;
  };

  /// What one turn of the devices hands over, and to whom.
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
  /// Stands for the devices' own thread: all receivers are called from its work.
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
