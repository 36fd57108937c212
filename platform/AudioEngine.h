#pragma once

#include "platform/AudioFormat.h"
#include "platform/PCMBuffer.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// The microphone's capture graph: an engine with the one input node that it has.
///
/// All functions are called from the control thread. Bus 0 is the only bus. An engine that does not
/// run may be destroyed on any thread.
class AudioEngine {
 public:
  /// Takes one buffer of captured samples, which the receiver may keep. Runs on a thread of the
  /// host's, or on the control thread while it is inside a call of this host, and must return at
  /// once: no lock that is held for long, no file, no conversion. It must not throw.
  using TapBlock = std::function<void(std::shared_ptr<PCMBuffer> buffer)>;

  virtual ~AudioEngine() = default;

  /// The input device's own format; 0 channels mean that there is no input. This, installTap() and
  /// prepare() throw PlatformError where the host's system refuses.
  virtual AudioFormat inputFormat(std::uint32_t bus) = 0;

  /// Delivers the input to block once the engine runs; a buffer that cannot be had is left out.
  /// format is what inputFormat() gave. bufferSize is a wish: a host may choose buffers of another
  /// size.
  virtual void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                          TapBlock block) = 0;

  /// Removes the tap, if there is one. Once this has returned, the block is not called any more.
  virtual void removeTap(std::uint32_t bus) = 0;

  virtual void prepare() = 0;

  /// Throws PlatformError where the input cannot be started.
  virtual void start() = 0;

  virtual bool isRunning() const = 0;
  virtual void stop() = 0;
};

}  // namespace quenlor::platform
