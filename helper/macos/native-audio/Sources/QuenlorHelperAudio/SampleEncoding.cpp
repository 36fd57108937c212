#include "SampleEncoding.h"

#include <bit>
#include <cmath>
#include <cstddef>

namespace quenlor {

namespace {

/// The largest float below a half. Adding it before truncation rounds halves away from zero and
/// 0.49999997 to 0; adding a half would round that to 1.
constexpr float almostHalf = 0x1.FFFFFEp-2F;

/// Without branches and calls, so that the compiler can vectorise it.
std::int32_t encoded(float sample) {
  const float number = sample == sample ? sample : 0.0F;
  const float raised = number > -1.0F ? number : -1.0F;
  const float scaled = (raised < 1.0F ? raised : 1.0F) * 32'767.0F;
  const auto rounded = static_cast<std::int32_t>(scaled + std::copysign(almostHalf, scaled));
  return rounded - (sample <= -1.0F ? 1 : 0);
}

}  // namespace

std::int16_t encodeSample(float sample) {
  return static_cast<std::int16_t>(encoded(sample));
}

void encodeFrames(std::span<const float> left, std::span<const float> right,
                  std::span<std::uint32_t> frames) {
  static_assert(std::endian::native == std::endian::little);
  for (std::size_t i = 0; i < frames.size(); ++i)
    frames[i] = (static_cast<std::uint32_t>(encoded(right[i])) << 16) |
                (static_cast<std::uint32_t>(encoded(left[i])) & 0xFFFF);
}

}  // namespace quenlor
