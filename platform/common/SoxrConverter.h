#pragma once

#include "platform/AudioConverter.h"
#include "platform/AudioFormat.h"

#include <memory>

namespace quenlor::platform {

/// Makes a converter from any format that SampleReader supports to non-interleaved 32-bit float
/// stereo. Returns nullptr for other formats, and for rates more than a factor of 1000 apart. A
/// mono source goes to both channels at full level; of more than two channels the first two are
/// used.
///
/// Each call asks the input block at least once, and until it has no more or the output is full.
/// The stream is never flushed: the resampler keeps its latency of sound, 9 ms at 44 100 Hz, 15 ms
/// at 16 000 Hz and 74 ms at 8 000 Hz. The output does not depend on the sizes of the buffers.
/// Errors are PlatformErrors, as for a source buffer that is not in the format from.
std::shared_ptr<AudioConverter> makeSoxrConverter(const AudioFormat& from, const AudioFormat& to);

}  // namespace quenlor::platform
