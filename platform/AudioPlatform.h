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

/// An error that the operating system or a host reports in words: what() is one line for people.
class PlatformError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Everything that the sidecar asks of an operating system. A host implements it.
///
/// All functions are called from the control thread unless they say otherwise. The platform
/// outlives whatever it handed out; queues, timers, converters and buffers may be released on any
/// thread. Its destruction waits until no thread of its own runs any more.
class AudioPlatform {
 public:
  virtual ~AudioPlatform() = default;

  /// Throws PlatformError where the host's audio system cannot be reached, and nothing once
  /// makeEngine() has succeeded.
  virtual AudioHardware& hardware() = 0;
  virtual CaptureDevice& captureDevice() = 0;

  /// Throws PlatformError where the host's audio system cannot be reached.
  virtual std::unique_ptr<AudioEngine> makeEngine() = 0;

  virtual std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) = 0;
  virtual std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) = 0;

  /// Nothing where the description cannot be represented.
  virtual std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) = 0;

  /// Nothing where the buffer cannot be had. Called from any thread.
  virtual std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                                std::uint32_t frameCapacity) = 0;

  /// Nothing where no converter exists for the two formats. Called from any thread.
  virtual std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                        const AudioFormat& to) = 0;

  /// The wall clock.
  virtual std::chrono::system_clock::time_point currentTime() = 0;
};

/// Takes one line about a change in the host's state, from any thread. Must not throw: it is called
/// inside callbacks of the system's.
using TraceSink = std::function<void(std::string_view message)>;

/// Makes the host that this program was linked with.
std::unique_ptr<AudioPlatform> makeAudioPlatform(const TraceSink& trace);

}  // namespace quenlor::platform
