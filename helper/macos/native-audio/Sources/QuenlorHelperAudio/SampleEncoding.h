#pragma once

#include <cstdint>
#include <span>

namespace quenlor {

/// The stored form of one sample: limited to ±1, times 32 767 in single precision, halves away from
/// zero; but -1 is stored as -32 768, and what is not a number as 0.
std::int16_t encodeSample(float sample);

/// Gives the stored form of frames, as encodeSample() gives it for each sample. Every frame takes
/// 32 bits, the left sample in the lower half. All three have the same length.
void encodeFrames(std::span<const float> left, std::span<const float> right,
                  std::span<std::uint32_t> frames);

}  // namespace quenlor
