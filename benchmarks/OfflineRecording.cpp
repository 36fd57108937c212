// Records virtual devices for an hour or longer, faster than real time, and prints the cost.
//
//   offline_recording SECONDS OUTPUT_HZ MICROPHONE_HZ FILE
//
// Prints one line of name=value pairs: CPU seconds in all, CPU milliseconds of the first and of the
// last minute, and allocations a tick in the last minute. The devices are part of all of them.

#include "AudioTapSession.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <string>

namespace {

std::uint64_t allocations = 0;

}  // namespace

// The program has one thread.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace quenlor::benchmarks {
namespace {

using platform::virtualhost::DeviceSettings;
using platform::virtualhost::ManualClock;
using platform::virtualhost::VirtualPlatform;

constexpr std::chrono::seconds minute{60};

struct Cost {
  double cpuSeconds;
  double allocationsPerTick;
};

Cost costOfRecording(ManualClock& clock, std::chrono::seconds duration) {
  const std::clock_t begin = std::clock();
  const std::uint64_t allocationsBefore = allocations;
  clock.advance(duration);
  const auto ticks = static_cast<double>(duration / AudioTapSession::mixInterval);
  return {static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC,
          static_cast<double>(allocations - allocationsBefore) / ticks};
}

void record(std::chrono::seconds duration, std::uint32_t outputRate, std::uint32_t microphoneRate,
            const std::string& path) {
  DeviceSettings output = platform::virtualhost::kDefaultOutput;
  DeviceSettings microphone = platform::virtualhost::kDefaultMicrophone;
  output.sampleRate = outputRate;
  microphone.sampleRate = microphoneRate;
  const auto clock = std::make_shared<ManualClock>();
  VirtualPlatform platform(clock, {.output = output, .microphone = microphone});
  const auto session =
      std::make_shared<AudioTapSession>(StartRequest{"mixed", path, "Benchmark"}, platform);
  session->start();
  const Cost first = costOfRecording(*clock, minute);
  const Cost middle = costOfRecording(*clock, duration - 2 * minute);
  const Cost last = costOfRecording(*clock, minute);
  session->stop();
  std::printf(
      "cpu_seconds=%.3f first_minute_ms=%.2f last_minute_ms=%.2f allocations_per_tick=%.2f\n",
      first.cpuSeconds + middle.cpuSeconds + last.cpuSeconds, 1000 * first.cpuSeconds,
      1000 * last.cpuSeconds, last.allocationsPerTick);
}

}  // namespace
}  // namespace quenlor::benchmarks

int main(int argc, char** argv) {
  try {
    if (argc != 5 || std::stoi(argv[1]) < 180) {
      std::fputs("Usage: offline_recording SECONDS OUTPUT_HZ MICROPHONE_HZ FILE, 180 s or more\n",
                 stderr);
      return 64;
    }
    quenlor::benchmarks::record(std::chrono::seconds(std::stoi(argv[1])),
                                static_cast<std::uint32_t>(std::stoul(argv[2])),
                                static_cast<std::uint32_t>(std::stoul(argv[3])), argv[4]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
