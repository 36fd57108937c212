#include "platform/pulse/PulsePlatform.h"

namespace quenlor::platform {

std::unique_ptr<AudioPlatform> makeAudioPlatform(const TraceSink& trace) {
  return std::make_unique<pulse::PulsePlatform>(trace);
}

}  // namespace quenlor::platform
