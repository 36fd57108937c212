#include "platform/coreaudio/CoreAudioEngine.h"

#include "platform/AudioPlatform.h"
#include "platform/coreaudio/Formats.h"

#include <utility>

namespace quenlor::platform::coreaudio {

namespace {

/// Runs one call of the engine. An exception that it raises, as for a device that changed since its
/// format was read, becomes an error of that call.
template <typename Call>
void perform(const Call& call) {
  @try {
    call();
  } @catch (NSException* exception) {
    throw PlatformError("The audio engine raised an exception: " + hostString(exception.reason));
  }
}

/// The same for calls without an error: teardown goes on with the next step.
template <typename Call>
void undo(const Call& call) {
  try {
    perform(call);
  } catch (const PlatformError&) {
    // Either nothing was left to undo, or the next call reports the error.
  }
}

}  // namespace

AudioFormat CoreAudioEngine::inputFormat(std::uint32_t bus) {
  perform([&] { nodeFormat = [engine.inputNode inputFormatForBus:bus]; });
  return hostFormat(nodeFormat).value_or(AudioFormat::float32(0, 0, false));
}

// The format is the one that inputFormat() gave: a node has no other.
void CoreAudioEngine::installTap(std::uint32_t bus, std::uint32_t bufferSize,
                                 const AudioFormat& /*format*/, TapBlock block) {
  const auto gate = std::make_shared<Gate<TapBlock>>(std::move(block));
  tap = gate;
  // Made here and not in the lambda, whose captures a block would only refer to.
  const AVAudioNodeTapBlock systemBlock = ^(AVAudioPCMBuffer* buffer, AVAudioTime*) {
    // The capture thread may have no pool of its own.
    @autoreleasepool {
      if (auto copy = hostBuffer(buffer)) gate->call(std::move(copy));
    }
  };
  perform([&] {
    [engine.inputNode installTapOnBus:bus
                           bufferSize:bufferSize
                               format:nodeFormat
                                block:systemBlock];
  });
}

void CoreAudioEngine::removeTap(std::uint32_t bus) {
  undo([&] { [engine.inputNode removeTapOnBus:bus]; });
  if (tap) tap->close();
}

void CoreAudioEngine::prepare() {
  perform([&] { [engine prepare]; });
}

void CoreAudioEngine::start() {
  perform([&] {
    NSError* error = nil;
    if (![engine startAndReturnError:&error])
      throw PlatformError(hostString(error.localizedDescription));
  });
}

bool CoreAudioEngine::isRunning() const {
  return engine.isRunning;
}

void CoreAudioEngine::stop() {
  undo([&] { [engine stop]; });
}

}  // namespace quenlor::platform::coreaudio
