#include "tests/sidecar/SessionFixture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <optional>
#include <span>
#include <unistd.h>

namespace quenlor::test {
namespace {

constexpr std::int64_t framesPerTick = 960;
constexpr std::int64_t ticksPerMinute = 3000;
constexpr std::chrono::minutes oneMinute{1};

/// How long the recordings are, in minutes of their own time.
int minutesToRecord() {
  const char* const minutes = std::getenv("QUENLOR_ENDURANCE_MINUTES");
  return minutes != nullptr ? std::atoi(minutes) : 10;
}

/// How many frames a device hands over in a tick of the mixer's, counted from 0, if its clock runs
/// faster than 48 kHz by partsPerMillion. Once a minute it fails for 200 ms, then catches up at
/// once.
std::uint32_t framesOfTick(std::int64_t tick, std::int64_t partsPerMillion) {
  constexpr std::int64_t failingTicks = 10;
  const auto framesUntil = [&](std::int64_t end) {
    return framesPerTick * end * (1'000'000 + partsPerMillion) / 1'000'000;
  };
  // Devices on different clocks fail at different times.
  const std::int64_t tickOfMinute = (tick + ticksPerMinute - partsPerMillion) % ticksPerMinute;
  if (tickOfMinute < failingTicks) return 0;
  const std::int64_t first = tickOfMinute == failingTicks ? tick - failingTicks : tick;
  return static_cast<std::uint32_t>(framesUntil(tick + 1) - framesUntil(first));
}

/// What this process holds of the machine.
struct ResourceUse {
  /// Allocated and not freed.
  std::uint64_t allocatedBytes = 0;
  /// Given to the process by the system.
  std::uint64_t residentBytes = 0;
  std::uint64_t descriptors = 0;

  static ResourceUse now() {
    const struct mallinfo2 heap = ::mallinfo2();
    std::uint64_t allPages = 0;
    std::uint64_t residentPages = 0;
    std::ifstream("/proc/self/statm") >> allPages >> residentPages;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return {.allocatedBytes = heap.uordblks + heap.hblkhd,
            .residentBytes = residentPages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)),
            .descriptors = static_cast<std::uint64_t>(std::distance(begin(open), end(open)))};
  }
};

/// The rules of mixing, frame counts only: a tick writes what the longer backlog holds, 960 frames
/// at most, and takes as many from both; the stop writes the rest.
struct MixingModel {
  void deliver(std::int64_t systemFrames, std::int64_t microphoneFrames) {
    system += systemFrames;
    microphone += microphoneFrames;
    mostStored = std::max(mostStored, system + microphone);
  }
  void tick() { write(std::min(framesPerTick, std::max(system, microphone))); }
  void stop() { write(std::max(system, microphone)); }

  std::int64_t system = 0;
  std::int64_t microphone = 0;
  std::int64_t mostStored = 0;
  std::int64_t written = 0;

 private:
  void write(std::int64_t frames) {
    system -= std::min(system, frames);
    microphone -= std::min(microphone, frames);
    written += frames;
  }
};

/// Gives the disk back what was written, as a hole behind the writer: a day takes 16.6 GB. Keeps
/// the first block, which has the header.
void punch(const std::filesystem::path& path) {
  constexpr off_t firstBlock = 4096;
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  const off_t end = ::lseek(descriptor, 0, SEEK_END);
  const int status = ::fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, firstBlock,
                                 end - firstBlock);
  EXPECT_EQ(status, 0) << std::strerror(errno);
  ::close(descriptor);
}

class Endurance : public SessionFixture {
 protected:
  void deliver(std::uint32_t systemFrames, std::uint32_t microphoneFrames) {
    if (systemFrames > 0) deliverSystem(std::vector<float>(systemFrames, 0.25F));
    if (microphoneFrames > 0) deliverMicrophone(std::vector<float>(microphoneFrames, 0.25F));
  }

  /// Compares with the first minute. expectedGrowth is what the backlogs have the right to.
  void expectFlat(std::uint64_t expectedGrowth) {
    const ResourceUse use = ResourceUse::now();
    if (!afterFirstMinute) afterFirstMinute = use;
    // Freed memory that the allocator keeps for the next buffers, and pages it has not given back.
    constexpr std::uint64_t slack = 1 << 20;
    ASSERT_LE(use.allocatedBytes, afterFirstMinute->allocatedBytes + expectedGrowth + slack / 8);
    ASSERT_EQ(use.descriptors, afterFirstMinute->descriptors);
#ifndef QUENLOR_KEEPS_FREED_MEMORY
    // A vector that grows holds its old and its new memory at once.
    ASSERT_LE(use.residentBytes, afterFirstMinute->residentBytes + 2 * expectedGrowth + slack);
#endif
  }

  void expectFinished(const StopResult& result, std::int64_t frames) const {
    const auto bytes = static_cast<std::uint64_t>(frames) * WaveWriter::bytesPerFrame;
    EXPECT_EQ(result.sizeBytes, bytes + WaveWriter::headerSize);
    EXPECT_EQ(std::filesystem::file_size(path), result.sizeBytes);
    WaveWriter::Header header{};
    std::ifstream(path).read(reinterpret_cast<char*>(header.data()), header.size());
    EXPECT_EQ(header, WaveWriter::makeHeader(bytes, 48'000, 2, 16));
  }

  std::optional<ResourceUse> afterFirstMinute;
  MixingModel model;
};

/// Both clocks are off by 300 ppm, one each way, far more than real ones, and both devices fail now
/// and then. What has to stay in memory is the lead of one source over the mixer: a tick takes 960
/// frames at most, so frames beyond that wait until the stop.
TEST_F(Endurance, DriftGapsAndBurstsLeaveMemoryAndCountsAsTheMixingRulesSay) {
  makeSession(exactDevices());
  session->start();
  std::int64_t now = 0;
  for (int minute = 1; minute <= minutesToRecord(); ++minute) {
    for (std::int64_t i = 0; i < ticksPerMinute; ++i, ++now) {
      const std::uint32_t systemFrames = framesOfTick(now, 300);
      const std::uint32_t microphoneFrames = framesOfTick(now, -300);
      deliver(systemFrames, microphoneFrames);
      tick();
      model.deliver(systemFrames, microphoneFrames);
      model.tick();
    }
    punch(path);
    ASSERT_EQ(std::filesystem::file_size(path),
              44U + 4 * static_cast<std::uint64_t>(model.written));
    // Two channels of floats, in vectors that double; consumed samples are removed in time.
    constexpr std::uint64_t bytesPerStoredFrame = 2 * 2 * sizeof(float);
    constexpr std::uint64_t consumedFrames = std::uint64_t{2} * 4096;
    const auto stored = static_cast<std::uint64_t>(model.mostStored);
    ASSERT_NO_FATAL_FAILURE(expectFlat((stored + consumedFrames) * bytesPerStoredFrame));
  }
  model.stop();
  expectFinished(session->stop(), model.written);
  std::printf("count endurance-minutes %d\n", minutesToRecord());
  std::printf("count endurance-stored-frames %lld\n", static_cast<long long>(model.mostStored));
}

/// Devices that both have to be resampled, on clocks that agree: nothing may pile up at all, and
/// what the resamplers still hold at the end is all that is missing.
TEST_F(Endurance, ResamplingLeavesMemoryFlat) {
  makeSession({});
  session->start();
  const int minutes = std::max(10, minutesToRecord() / 5);
  for (int minute = 1; minute <= minutes; ++minute) {
    clock->advance(oneMinute);
    if (minute < minutes) punch(path);
    ASSERT_NO_FATAL_FAILURE(expectFlat(0));
  }
  const StopResult result = session->stop();
  const auto frames = static_cast<std::int64_t>((result.sizeBytes - WaveWriter::headerSize) /
                                                WaveWriter::bytesPerFrame);
  expectFinished(result, frames);
  EXPECT_EQ(result.durationSeconds, 60.0 * minutes);
  EXPECT_GT(frames, 48'000LL * 60 * minutes - 48 * 30);
  EXPECT_LE(frames, 48'000LL * 60 * minutes);

  std::vector<std::int16_t> lastSecond(2 * 48'000UL);
  const std::span bytes = std::as_writable_bytes(std::span(lastSecond));
  std::ifstream file(path);
  file.seekg(-static_cast<std::streamoff>(bytes.size()), std::ios::end);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  EXPECT_NEAR(std::ranges::max(lastSecond), 32'767 / 2, 300) << "where both tones meet";
}

}  // namespace
}  // namespace quenlor::test
