#pragma once

#include "platform/AudioConverter.h"

#include <memory>

namespace quenlor::platform::coreaudio {

/// The system's converter, with its default options; of more than two channels it takes the first
/// two. Nothing where there is none for the formats. Called from any thread.
std::shared_ptr<AudioConverter> makeCoreAudioConverter(const AudioFormat& from,
                                                       const AudioFormat& to);

}  // namespace quenlor::platform::coreaudio
