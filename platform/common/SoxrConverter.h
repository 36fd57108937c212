#pragma once

#include "platform/AudioConverter.h"
#include "platform/AudioFormat.h"

#include <memory>

namespace quenlor::platform {

/// Makes a converter from any format that SampleReader reads to non-interleaved stereo of 32-bit
/// floats; nothing for other formats, or for rates more than a factor of 1000 apart. A mono source
/// goes to both channels at its full level, of more than two channels the first two are taken.
///
/// The converter asks its input block until that has no more or the output is full, at least once
/// a call. Its signal runs on from one call to the next: it is never flushed, so the last few
/// milliseconds of a resampled stream stay inside. Whatever the sizes of the buffers, the same
/// samples come out. Its errors are PlatformErrors; a source buffer in a format other than from is
/// one, because neither the layout nor the rate being converted is its own.
std::shared_ptr<AudioConverter> makeSoxrConverter(const AudioFormat& from, const AudioFormat& to);

}  // namespace quenlor::platform
