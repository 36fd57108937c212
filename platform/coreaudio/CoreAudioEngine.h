#pragma once

#include "platform/AudioEngine.h"
#include "platform/coreaudio/Gate.h"

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
  AVAudioEngine* const engine = [[AVAudioEngine alloc] init];
  /// What inputFormat() came to last. The seam's format has no channel layout, which more than two
  /// channels need and a tap has to share with its node.
  AVAudioFormat* nodeFormat = nil;
  std::shared_ptr<Gate<TapBlock>> tap;
};

}  // namespace quenlor::platform::coreaudio
