#include "platform/coreaudio/CoreAudioPlatform.h"

namespace quenlor::platform {

// This host follows no device and so has no change of state to trace.
std::unique_ptr<AudioPlatform> makeAudioPlatform(const TraceSink& /*trace*/) {
  return std::make_unique<coreaudio::CoreAudioPlatform>();
}

}  // namespace quenlor::platform
