#include "platform/virtual/ToneSource.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <numeric>

namespace quenlor::platform::virtualhost {

namespace {

std::vector<float> makePeriod(const DeviceSettings& device) {
  const std::uint64_t rate = device.sampleRate;
  std::vector<float> samples(rate / std::gcd(rate, std::uint64_t{device.toneFrequency}));
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const std::uint64_t phase = device.toneFrequency * std::uint64_t{n} % rate;
    const double angle =
        2 * std::numbers::pi * static_cast<double>(phase) / static_cast<double>(rate);
    samples[n] = static_cast<float>(double{device.amplitude} * std::sin(angle));
  }
  return samples;
}

}  // namespace

ToneSource::ToneSource(const DeviceSettings& device)
    : settings(device), period(makePeriod(device)) {}

void ToneSource::fill(AudioBufferList buffers, std::uint64_t firstFrame, bool silent) const {
  std::uint32_t firstChannel = 0;
  for (const AudioBuffer& buffer : buffers) {
    const std::size_t stride = buffer.mNumberChannels;
    auto* const samples = static_cast<float*>(buffer.mData);
    const std::size_t frames = buffer.mDataByteSize / (sizeof(float) * stride);
    for (std::size_t channel = 0; channel < stride; ++channel) {
      const bool sounds = !silent && (settings.toneChannels >> (firstChannel + channel) & 1) != 0;
      for (std::size_t frame = 0; frame < frames;) {
        const std::size_t phase = (firstFrame + frame) % period.size();
        const std::size_t run = std::min(frames - frame, period.size() - phase);
        float* const target = samples + frame * stride + channel;
        for (std::size_t i = 0; i < run; ++i) target[i * stride] = sounds ? period[phase + i] : 0;
        frame += run;
      }
    }
    firstChannel += buffer.mNumberChannels;
  }
}

}  // namespace quenlor::platform::virtualhost
