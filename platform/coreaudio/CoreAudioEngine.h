#pragma once

#include "platform/AudioEngine.h"
#include "platform/ThreadSafety.h"

#import <AVFAudio/AVFAudio.h>
#include <memory>

namespace quenlor::platform::coreaudio {

/// The system's audio engine and its input node, which is the default input device. The engine
/// stops by itself when that device changes.
class CoreAudioEngine final : public AudioEngine {
 public:
  AudioFormat inputFormat(std::uint32_t bus) override;
  void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                  TapBlock block) override;
  void removeTap(std::uint32_t bus) override;
  void prepare() override;
  void start() override;
  bool isRunning() const override;
  void stop() override;

 private:
  /// What the system's capture thread calls. The system does not promise that it is done with a tap
  /// that was removed; the lock does.
  struct Tap {
    Mutex mutex;
    TapBlock block GUARDED_BY(mutex);
  };

  AVAudioEngine* const engine = [[AVAudioEngine alloc] init];
  std::shared_ptr<Tap> tap;
};

}  // namespace quenlor::platform::coreaudio
