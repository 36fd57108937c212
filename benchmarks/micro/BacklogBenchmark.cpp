#include "Buffers.h"
#include "SampleBacklog.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstring>
#include <vector>

namespace quenlor::benchmarks {
namespace {

constexpr std::uint32_t framesPerTick = 960;
constexpr std::int64_t bytesPerTick{framesPerTick * 2 * sizeof(float)};

/// Appends and consumes one tick's frames. The argument is the number of frames stored before:
/// none, 80 ms of a recording, and two seconds.
void backlogAppendAndConsume(benchmark::State& state) {
  const auto format = platform::AudioFormat::float32(48'000, 2, false);
  SampleBacklog backlog;
  if (state.range(0) > 0)
    backlog.append(*noiseBuffer(format, static_cast<std::uint32_t>(state.range(0))));
  const auto buffer = noiseBuffer(format, framesPerTick);
  while (state.KeepRunning()) {
    backlog.append(*buffer);
    benchmark::DoNotOptimize(backlog.consume(framesPerTick));
  }
  state.SetBytesProcessed(state.iterations() * bytesPerTick);
}
BENCHMARK(backlogAppendAndConsume)->Arg(0)->Arg(3840)->Arg(96'000);

/// The limit: copies the same bytes in and out once.
void backlogAppendAndConsumeLimit(benchmark::State& state) {
  const std::vector<float> source = noise(framesPerTick * 2);
  std::vector<float> stored(source.size());
  std::vector<float> taken(source.size());
  while (state.KeepRunning()) {
    std::memcpy(stored.data(), source.data(), bytesPerTick);
    benchmark::ClobberMemory();
    std::memcpy(taken.data(), stored.data(), bytesPerTick);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * bytesPerTick);
}
BENCHMARK(backlogAppendAndConsumeLimit);

}  // namespace
}  // namespace quenlor::benchmarks
