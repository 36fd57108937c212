#include "Buffers.h"
#include "platform/common/SoxrConverter.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <soxr.h>
#include <utility>
#include <vector>

namespace quenlor::benchmarks {
namespace {

using platform::AudioFormat;
using platform::PCMBuffer;

constexpr double targetRate = 48'000;
constexpr int buffersPerSecond = 50;

std::uint32_t targetFrames(std::uint32_t frames, double rate) {
  return static_cast<std::uint32_t>(std::ceil(frames * targetRate / rate));
}

/// Buffers of 20 ms through the converter. Arguments: rate, channels, whether interleaved.
void conversion(benchmark::State& state) {
  const auto rate = static_cast<double>(state.range(0));
  const auto format =
      AudioFormat::float32(rate, static_cast<std::uint32_t>(state.range(1)), state.range(2) != 0);
  const auto target = AudioFormat::float32(targetRate, 2, false);
  const auto frames = static_cast<std::uint32_t>(state.range(0) / buffersPerSecond);
  const auto source = noiseBuffer(format, frames);
  const auto output = PCMBuffer::create(target, targetFrames(frames, rate));
  const auto converter = platform::makeSoxrConverter(format, target);
  while (state.KeepRunning()) {
    std::exception_ptr error;
    bool handedOver = false;
    converter->convert(*output, error, [&](std::uint32_t, platform::ConverterInputStatus& status) {
      status = handedOver ? platform::ConverterInputStatus::endOfStream
                          : platform::ConverterInputStatus::haveData;
      return std::exchange(handedOver, true) ? nullptr : source;
    });
    benchmark::DoNotOptimize(output->floatChannelData()[0][0]);
    if (error) std::rethrow_exception(error);
  }
  state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(conversion)
    ->ArgNames({"rate", "channels", "interleaved"})
    ->Args({44'100, 2, 1})
    ->Args({44'100, 2, 0})
    ->Args({96'000, 2, 1})
    ->Args({16'000, 1, 0})
    ->Args({48'000, 2, 1})
    ->Args({48'000, 2, 0})
    ->Args({48'000, 1, 0});

/// The resampler alone, configured as in the converter, on planar samples; for equal rates, a copy.
void conversionLimit(benchmark::State& state) {
  const auto rate = static_cast<double>(state.range(0));
  const auto channels = static_cast<std::size_t>(state.range(1));
  const auto frames = static_cast<std::uint32_t>(state.range(0) / buffersPerSecond);
  const std::uint32_t room = targetFrames(frames, rate);
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  runtime.log2_min_dft_size = 8;
  runtime.log2_large_dft_size = 8;
  const std::unique_ptr<soxr, decltype(&soxr_delete)> resampler(
      soxr_create(rate, targetRate, static_cast<unsigned>(channels), nullptr, &io, &quality,
                  &runtime),
      &soxr_delete);
  const std::vector<float> source = noise(frames);
  std::array<std::vector<float>, 2> planes{std::vector<float>(room), std::vector<float>(room)};
  const std::array<soxr_cbuf_t, 2> from{source.data(), source.data()};
  std::array<soxr_buf_t, 2> to{planes[0].data(), planes[1].data()};
  while (state.KeepRunning()) {
    std::size_t given = 0;
    if (rate == targetRate)
      for (std::vector<float>& plane : planes) std::ranges::copy(source, plane.begin());
    else
      soxr_process(resampler.get(), from.data(), frames, nullptr, to.data(), room, &given);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(conversionLimit)
    ->ArgNames({"rate", "channels"})
    ->Args({44'100, 2})
    ->Args({96'000, 2})
    ->Args({16'000, 1})
    ->Args({48'000, 2})
    ->Args({48'000, 1});

}  // namespace
}  // namespace quenlor::benchmarks
