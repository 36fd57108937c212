#include "platform/coreaudio/CoreAudioEngine.h"

#include "platform/AudioPlatform.h"
#include "platform/coreaudio/Formats.h"

#include <utility>

namespace quenlor::platform::coreaudio {

AudioFormat CoreAudioEngine::inputFormat(std::uint32_t bus) {
  return hostFormat([engine.inputNode inputFormatForBus:bus])
      .value_or(AudioFormat::float32(0, 0, false));
}

void CoreAudioEngine::installTap(std::uint32_t bus, std::uint32_t bufferSize,
                                 const AudioFormat& format, TapBlock block) {
  const auto installed = std::make_shared<Tap>();
  {
    const MutexLock lock(installed->mutex);
    installed->block = std::move(block);
  }
  tap = installed;
  // Without a format, which more than two channels can lead to, the tap has the bus's own.
  [engine.inputNode installTapOnBus:bus
                         bufferSize:bufferSize
                             format:systemFormat(format)
                              block:^(AVAudioPCMBuffer* buffer, AVAudioTime*) {
                                const MutexLock lock(installed->mutex);
                                if (!installed->block) return;
                                if (auto copy = hostBuffer(buffer))
                                  installed->block(std::move(copy));
                              }];
}

void CoreAudioEngine::removeTap(std::uint32_t bus) {
  [engine.inputNode removeTapOnBus:bus];
  if (!tap) return;
  const MutexLock lock(tap->mutex);
  tap->block = nullptr;
}

void CoreAudioEngine::prepare() {
  [engine prepare];
}

void CoreAudioEngine::start() {
  NSError* error = nil;
  if (![engine startAndReturnError:&error])
    throw PlatformError(hostString(error.localizedDescription));
}

bool CoreAudioEngine::isRunning() const {
  return engine.isRunning;
}

void CoreAudioEngine::stop() {
  [engine stop];
}

}  // namespace quenlor::platform::coreaudio
