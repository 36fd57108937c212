#include "platform/pulse/PulsePlatform.h"

#include <utility>

namespace quenlor::platform {

std::unique_ptr<AudioPlatform> makeAudioPlatform(TraceSink trace) {
  return std::make_unique<pulse::PulsePlatform>(std::move(trace));
}

}  // namespace quenlor::platform
