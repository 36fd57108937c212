#pragma once

#include "platform/AudioConverter.h"
#include "platform/AudioEngine.h"
#include "platform/AudioFormat.h"
#include "platform/AudioHardware.h"
#include "platform/CaptureDevice.h"
#include "platform/DispatchQueue.h"
#include "platform/DispatchTimer.h"
#include "platform/PCMBuffer.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quenlor::platform {

/// An error of the operating system or of a host. what() is one line to show to users.
class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Everything that the sidecar needs from an operating system. Hosts implement it.
///
/// All functions are called from the control thread unless stated otherwise. The platform outlives
/// all objects that it made. Queues, timers, converters and buffers may be released on any thread.
/// The destructor waits for the platform's threads to end.
class AudioPlatform {
 public:
  virtual ~AudioPlatform() = default;

  /// Throws PlatformError if the host's audio system cannot be reached, but not after makeEngine()
  /// has succeeded.
  virtual AudioHardware& hardware() = 0;
  virtual CaptureDevice& captureDevice() = 0;

  /// Throws PlatformError if the host's audio system cannot be reached.
  virtual std::unique_ptr<AudioEngine> makeEngine() = 0;

  virtual std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) = 0;
  virtual std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) = 0;

  /// Returns nullopt for a description that is not a valid format.
  virtual std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) = 0;

  /// Returns nullptr if the buffer cannot be allocated. Called from any thread.
  virtual std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                                std::uint32_t frameCapacity) = 0;

  /// Returns nullptr if the host cannot convert between the two formats. Called from any thread.
  virtual std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                        const AudioFormat& to) = 0;

  /// The wall clock.
  virtual std::chrono::system_clock::time_point currentTime() = 0;
};

/// Receives one line about a change of the host's state. Called from any thread, also inside
/// callbacks of the system, so it must not throw.
using TraceSink = std::function<void(std::string_view message)>;

/// Makes the host that this program was linked with.
std::unique_ptr<AudioPlatform> makeAudioPlatform(const TraceSink& trace);

}  // namespace quenlor::platform
