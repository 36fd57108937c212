#include "FramedStdinReader.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>

namespace quenlor::benchmarks {
namespace {

/// An unnamed file with a text, to be read repeatedly.
class TextFile {
 public:
  explicit TextFile(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::fflush(file.get());
  }

  int rewound() const {
    ::lseek(::fileno(file.get()), 0, SEEK_SET);
    return ::fileno(file.get());
  }

 private:
  struct Close {
    void operator()(std::FILE* opened) const { std::fclose(opened); }
  };

  std::unique_ptr<std::FILE, Close> file{std::tmpfile()};
};

void readAllFrames(benchmark::State& state, const std::string& text) {
  const TextFile file(text);
  while (state.KeepRunning()) {
    FramedStdinReader reader(file.rewound());
    while (const auto frame = reader.readFrame()) benchmark::DoNotOptimize(frame->data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void frameReaderShortLines(benchmark::State& state) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) text += "{\"command\":\"stop\"}\n";
  readAllFrames(state, text);
}
BENCHMARK(frameReaderShortLines);

/// One line, up to the longest allowed. The bytes per second must not fall with its length.
void frameReaderOneLine(benchmark::State& state) {
  readAllFrames(state, std::string(static_cast<std::size_t>(state.range(0)) - 1, 'x') + '\n');
}
BENCHMARK(frameReaderOneLine)->RangeMultiplier(8)->Range(1 << 14, 1 << 20);

/// Only reads the same bytes in portions of the same size.
void frameReaderOneLineLimit(benchmark::State& state) {
  const TextFile file(std::string(static_cast<std::size_t>(state.range(0)), 'x'));
  std::array<char, 4096> chunk{};
  while (state.KeepRunning()) {
    const int descriptor = file.rewound();
    while (::read(descriptor, chunk.data(), chunk.size()) > 0) benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(frameReaderOneLineLimit)->RangeMultiplier(8)->Range(1 << 14, 1 << 20);

}  // namespace
}  // namespace quenlor::benchmarks
