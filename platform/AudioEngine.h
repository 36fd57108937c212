#pragma once

#include "platform/AudioFormat.h"
#include "platform/PCMBuffer.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// The microphone's capture graph: an audio engine with one input node.
///
/// All functions are called from the control thread. Bus 0 is the only bus. A stopped engine may be
/// destroyed on any thread.
class AudioEngine {
 public:
  /// Receives one buffer of captured samples and may keep it. Runs on a thread of the host, or on
  /// the control thread during a call into the host. Must return at once: no lock that is held for
  /// long, no file access, no conversion. Must not throw.
  using TapBlock = std::function<void(std::shared_ptr<PCMBuffer> buffer)>;

  virtual ~AudioEngine() = default;

  /// The input device's native format, with 0 channels if there is no input. This function,
  /// installTap() and prepare() throw PlatformError if the system refuses.
  virtual AudioFormat inputFormat(std::uint32_t bus) = 0;

  /// Delivers the input to block while the engine runs. Samples for which no buffer can be
  /// allocated are dropped. format is what inputFormat() returned. bufferSize, in frames, is a
  /// request: a host may use another size.
  virtual void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                          TapBlock block) = 0;

  /// Removes the tap, if there is one. The block is not called after this returns.
  virtual void removeTap(std::uint32_t bus) = 0;

  virtual void prepare() = 0;

  /// Throws PlatformError if the input cannot be started.
  virtual void start() = 0;

  virtual bool isRunning() const = 0;
  virtual void stop() = 0;
};

}  // namespace quenlor::platform
