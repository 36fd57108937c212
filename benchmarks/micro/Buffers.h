#pragma once

#include "platform/PCMBuffer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace quenlor::benchmarks {

/// Samples that a compiler cannot foresee, within ±1.
inline std::vector<float> noise(std::size_t count) {
  std::vector<float> samples(count);
  std::uint32_t state = 1;
  for (float& sample : samples) {
    state = state * 1'664'525 + 1'013'904'223;
    sample = static_cast<float>(state) / 2'147'483'648.0F - 1.0F;
  }
  return samples;
}

/// A full buffer of 32-bit float noise.
inline std::shared_ptr<platform::PCMBuffer> noiseBuffer(const platform::AudioFormat& format,
                                                        std::uint32_t frames) {
  auto buffer = platform::PCMBuffer::create(format, frames);
  buffer->setFrameLength(frames);
  for (const platform::AudioBuffer& plane : buffer->audioBufferList())
    std::ranges::copy(noise(plane.mDataByteSize / sizeof(float)), static_cast<float*>(plane.mData));
  return buffer;
}

}  // namespace quenlor::benchmarks
