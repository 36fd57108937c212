#include "Buffers.h"
#include "SampleEncoding.h"
#include "WaveWriter.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

namespace quenlor::benchmarks {
namespace {

constexpr std::size_t framesPerTick = 960;
/// Limits the file to 77 MB.
constexpr std::int64_t appends = 20'000;

std::int16_t encodePlainly(float sample) {
  if (std::isnan(sample)) return 0;
  if (sample <= -1.0F) return -32'768;
  return static_cast<std::int16_t>(std::round(std::min(sample, 1.0F) * 32'767.0F));
}

/// One tick's frames, encoded by encode(left, right, frames).
void encodeTick(benchmark::State& state, auto encode) {
  const std::vector<float> left = noise(framesPerTick);
  const std::vector<float> right(left.rbegin(), left.rend());
  std::vector<std::uint32_t> frames(framesPerTick);
  while (state.KeepRunning()) {
    encode(left, right, frames);
    benchmark::DoNotOptimize(frames.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(framesPerTick));
}

void encode(benchmark::State& state) {
  encodeTick(state, encodeFrames);
}
BENCHMARK(encode);

/// Sample by sample: the plain implementation.
void encodePlain(benchmark::State& state) {
  encodeTick(state, [](const auto& left, const auto& right, auto& frames) {
    auto* const samples = reinterpret_cast<std::int16_t*>(frames.data());
    for (std::size_t i = 0; i < left.size(); ++i) {
      samples[2 * i] = encodePlainly(left[i]);
      samples[2 * i + 1] = encodePlainly(right[i]);
    }
  });
}
BENCHMARK(encodePlain);

/// Copies as many bytes as the encoded frames have.
void encodeLimit(benchmark::State& state) {
  encodeTick(state, [](const auto& left, const auto& /*right*/, auto& frames) {
    std::memcpy(frames.data(), left.data(), left.size() * sizeof(float));
  });
}
BENCHMARK(encodeLimit);

/// Encodes and writes one tick's frames.
void waveAppend(benchmark::State& state) {
  const test::TemporaryFolder folder;
  WaveWriter writer((folder / "recording.wav").string());
  const std::vector<float> left = noise(framesPerTick);
  const std::vector<float> right(left.rbegin(), left.rend());
  while (state.KeepRunning()) writer.append(left, right, framesPerTick);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(framesPerTick));
}
BENCHMARK(waveAppend)->Iterations(appends);

/// Writes as many bytes at a time to such a file.
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
