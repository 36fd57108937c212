#include "AudioTapSession.h"
#include "Buffers.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <fstream>
#include <memory>
#include <vector>

namespace quenlor::benchmarks {
namespace {

using platform::virtualhost::DeviceSettings;
using platform::virtualhost::ManualClock;
using platform::virtualhost::Signal;
using platform::virtualhost::VirtualPlatform;

constexpr std::uint32_t framesPerTick = 960;
/// Limits the file to 77 MB.
constexpr std::int64_t ticks = 20'000;

/// One tick of a session whose devices have the target format: intake of both sources, both
/// backlogs, mixing, limiting, encoding and writing, on queues that cost next to nothing.
void mixOneTick(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const DeviceSettings device{.sampleRate = 48'000,
                              .channelCount = 2,
                              .interleaved = false,
                              .toneFrequency = 440,
                              .signal = Signal::nothing};
  const auto clock = std::make_shared<ManualClock>();
  VirtualPlatform platform(clock, {.output = device, .microphone = device});
  const auto session = std::make_shared<AudioTapSession>(
      StartRequest{"mixed", (folder / "recording.wav").string(), "Benchmark"}, platform);
  session->start();
  const auto buffer = noiseBuffer(device.format(), framesPerTick);
  while (state.KeepRunning()) {
    platform.deliverSystem(buffer->audioBufferList());
    platform.deliverMicrophone(buffer);
    clock->advance(AudioTapSession::mixInterval);
  }
  session->stop();
  state.SetItemsProcessed(state.iterations() * framesPerTick);
}
BENCHMARK(mixOneTick)->Iterations(ticks);

/// One tick's frames added, limited, encoded and written in one plain loop.
void mixOneTickLimit(benchmark::State& state) {
  const test::TemporaryFolder folder;
  std::ofstream file(folder / "frames", std::ios::binary);
  const std::vector<float> system = noise(2 * framesPerTick);
  const std::vector<float> microphone(system.rbegin(), system.rend());
  std::vector<std::int16_t> mix(system.size());
  while (state.KeepRunning()) {
    std::ranges::transform(system, microphone, mix.begin(), [](float a, float b) {
      return static_cast<std::int16_t>(std::clamp(a + b, -1.0F, 1.0F) * 32'767.0F);
    });
    file.write(reinterpret_cast<const char*>(mix.data()),
               static_cast<std::streamsize>(mix.size() * sizeof(std::int16_t)));
    file.flush();
  }
  state.SetItemsProcessed(state.iterations() * framesPerTick);
}
BENCHMARK(mixOneTickLimit)->Iterations(ticks);

}  // namespace
}  // namespace quenlor::benchmarks
