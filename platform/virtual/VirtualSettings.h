#pragma once

#include "platform/AudioFormat.h"
#include "platform/CaptureDevice.h"

#include <cstdint>
#include <optional>

namespace quenlor::platform::virtualhost {

/// What a virtual device delivers by itself. The tone advances with time, whether delivered or not.
enum class Signal {
  tone,
  silence,
  /// No buffers at all, as from a device that was unplugged or has stalled.
  nothing,
};

/// One virtual device: 32-bit float samples of one tone,
/// amplitude * sin(2 pi toneFrequency n / sampleRate) for frame n counted from the stream's start.
struct DeviceSettings {
  std::uint32_t sampleRate;
  std::uint32_t channelCount;
  bool interleaved;
  /// In whole hertz, so that the tone repeats after at most one second and never drifts.
  std::uint32_t toneFrequency;
  float amplitude = 0.25F;
  /// Bit i set: channel i carries the tone; the other channels are silent.
  std::uint32_t toneChannels = ~std::uint32_t{0};
  Signal signal = Signal::tone;

  AudioFormat format() const { return AudioFormat::float32(sampleRate, channelCount, interleaved); }
};

/// Different in rate, layout and pitch, so that both sources are converted and can be
/// distinguished.
inline constexpr DeviceSettings kDefaultOutput{
    .sampleRate = 44100, .channelCount = 2, .interleaved = true, .toneFrequency = 440};
inline constexpr DeviceSettings kDefaultMicrophone{
    .sampleRate = 16000, .channelCount = 1, .interleaved = false, .toneFrequency = 1000};

struct VirtualSettings {
  /// If absent, there is no default output device. A tap can still be made; it delivers nothing.
  std::optional<DeviceSettings> output = kDefaultOutput;
  /// If absent, the input node has 0 channels and there is no default capture device.
  std::optional<DeviceSettings> microphone = kDefaultMicrophone;
  /// Reported as the aggregate device's stream format instead of output's own. The samples
  /// delivered are still those of output.
  std::optional<AudioStreamBasicDescription> reportedStreamFormat = std::nullopt;
  AuthorizationStatus authorizationStatus = AuthorizationStatus::authorized;
  /// The user's answer when asked.
  bool grantsAccess = true;
};

}  // namespace quenlor::platform::virtualhost
