#include "Buffers.h"
#include "WaveWriter.h"
#include "tests/support/TemporaryFolder.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <fstream>
#include <vector>

namespace quenlor::benchmarks {
namespace {

constexpr std::size_t framesPerTick = 960;
/// Few enough for the file that they fill: 77 MB.
constexpr std::int64_t appends = 20'000;

/// Encoding and writing one tick's frames.
void waveAppend(benchmark::State& state) {
  const test::TemporaryFolder folder;
  WaveWriter writer((folder / "recording.wav").string());
  const std::vector<float> left = noise(framesPerTick);
  const std::vector<float> right(left.rbegin(), left.rend());
  while (state.KeepRunning()) writer.append(left, right, framesPerTick);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(framesPerTick));
}
BENCHMARK(waveAppend)->Iterations(appends);

/// Writing as many bytes at a time to such a file.
void waveAppendLimit(benchmark::State& state) {
  const test::TemporaryFolder folder;
  std::ofstream file(folder / "bytes", std::ios::binary);
  const std::vector<char> bytes(framesPerTick * WaveWriter::bytesPerFrame);
  while (state.KeepRunning()) {
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.flush();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(framesPerTick));
}
BENCHMARK(waveAppendLimit)->Iterations(appends);

void waveHeader(benchmark::State& state) {
  std::uint64_t bytes = 0;
  while (state.KeepRunning())
    benchmark::DoNotOptimize(WaveWriter::makeHeader(bytes += 3840, 48'000, 2, 16));
}
BENCHMARK(waveHeader);

}  // namespace
}  // namespace quenlor::benchmarks
