#pragma once

#include "platform/AudioConverter.h"

#include <cmath>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace quenlor::test {

/// What came out of a converter so far.
struct Converted {
  std::vector<float> left;
  std::vector<float> right;
  platform::ConverterOutputStatus lastStatus{};
};

/// The input block that hands over one buffer, or none, and then reports the end.
inline platform::AudioConverter::InputBlock once(std::shared_ptr<platform::PCMBuffer> buffer) {
  return [buffer = std::move(buffer)](std::uint32_t, auto& status) mutable {
    status = buffer != nullptr ? platform::ConverterInputStatus::haveData
                               : platform::ConverterInputStatus::endOfStream;
    return std::exchange(buffer, nullptr);
  };
}

/// The output room that a caller gives for a number of source frames.
inline std::uint32_t capacityFor(double fromRate, double toRate, std::uint32_t frames) {
  const double ratio = toRate / fromRate;
  return static_cast<std::uint32_t>(std::ceil(ratio * frames));
}

/// Converts one buffer into room for capacity frames and appends what came out.
inline void convertOne(platform::AudioConverter& converter, const platform::AudioFormat& to,
                       std::shared_ptr<platform::PCMBuffer> source, std::uint32_t capacity,
                       Converted& result) {
  const auto output = platform::PCMBuffer::create(to, capacity);
  std::exception_ptr error;
  result.lastStatus = converter.convert(*output, error, once(std::move(source)));
  if (error) std::rethrow_exception(error);
  const auto planes = output->floatChannelData();
  result.left.insert(result.left.end(), planes[0], planes[0] + output->frameLength());
  result.right.insert(result.right.end(), planes[1], planes[1] + output->frameLength());
}

}  // namespace quenlor::test
