#include "SidecarControlProtocol.h"

#include <benchmark/benchmark.h>
#include <string>

namespace quenlor::benchmarks {
namespace {

void messageStart(benchmark::State& state) {
  const std::string frame =
      R"({"mode":"mixed","outputPath":"/home/someone/recordings/weekly.wav","title":"Weekly"})";
  while (state.KeepRunning())
    benchmark::DoNotOptimize(SidecarControlProtocol::decodeStartRequestFrame(frame));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(frame.size()));
}
BENCHMARK(messageStart);

void messageStop(benchmark::State& state, const std::string& frame) {
  while (state.KeepRunning())
    benchmark::DoNotOptimize(SidecarControlProtocol::parseStopFrame(frame));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(frame.size()));
}
BENCHMARK_CAPTURE(messageStop, word, "stop");
BENCHMARK_CAPTURE(messageStop, JSON, R"({"command":"stop"})");

}  // namespace
}  // namespace quenlor::benchmarks
