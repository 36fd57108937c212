#include "platform/virtual/RealTimePace.h"
#include "platform/virtual/VirtualPlatform.h"

namespace quenlor::platform {

// Virtual devices never change state, so there is nothing to trace.
std::unique_ptr<AudioPlatform> makeAudioPlatform(const TraceSink& /*trace*/) {
  return std::make_unique<virtualhost::VirtualPlatform>(
      std::make_shared<virtualhost::RealTimePace>());
}

}  // namespace quenlor::platform
