#pragma once

#include <cstdint>
#include <span>

namespace quenlor {

/// Encodes one sample: limited to ±1, multiplied by 32 767 in single precision and rounded, halves
/// away from zero. -1 gives -32 768, and NaN gives 0.
std::int16_t encodeSample(float sample);

/// Encodes frames as encodeSample() encodes samples. A frame has 32 bits, the left sample in the
/// lower half. All three spans have the same length.
void encodeFrames(std::span<const float> left, std::span<const float> right,
                  std::span<std::uint32_t> frames);

}  // namespace quenlor
