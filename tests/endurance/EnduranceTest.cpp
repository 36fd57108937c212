#include "AudioTapSession.h"
#include "DriftingSource.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <malloc.h>
#include <memory>
#include <optional>
#include <unistd.h>

namespace quenlor::test {
namespace {

using platform::AudioFormat;
using platform::PCMBuffer;
using platform::virtualhost::DeviceSettings;
using platform::virtualhost::ManualClock;
using platform::virtualhost::Signal;
using platform::virtualhost::VirtualPlatform;
using platform::virtualhost::VirtualSettings;

constexpr std::int64_t framesPerTick = DriftingSource::framesPerTick;
constexpr std::chrono::minutes oneMinute{1};

/// How long the recordings are, in minutes of their own time.
int minutesToRecord() {
  const char* const minutes = std::getenv("QUENLOR_ENDURANCE_MINUTES");
  return minutes != nullptr ? std::atoi(minutes) : 10;
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

std::uint64_t saturated(std::uint64_t size) {
  return std::min<std::uint64_t>(size, std::numeric_limits<std::uint32_t>::max());
}

std::uint64_t headerField(const std::filesystem::path& path, std::streamoff offset) {
  std::array<unsigned char, 4> bytes{};
  std::ifstream file(path, std::ios::binary);
  file.seekg(offset);
  file.read(reinterpret_cast<char*>(bytes.data()), bytes.size());
  return std::uint64_t{bytes[0]} | std::uint64_t{bytes[1]} << 8U | std::uint64_t{bytes[2]} << 16U |
         std::uint64_t{bytes[3]} << 24U;
}

class Endurance : public testing::Test {
 protected:
  void start(const VirtualSettings& settings) {
    host = std::make_unique<VirtualPlatform>(clock, settings);
    session =
        std::make_shared<AudioTapSession>(StartRequest{"mixed", path.string(), "Long"}, *host);
    session->start();
  }

  void deliver(std::uint32_t systemFrames, std::uint32_t microphoneFrames) {
    if (systemFrames > 0) host->deliverSystem(quietBuffer(systemFrames)->audioBufferList());
    if (microphoneFrames > 0) host->deliverMicrophone(quietBuffer(microphoneFrames));
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

  void expectFinished(const StopResult& result, std::int64_t frames) {
    const auto bytes = static_cast<std::uint64_t>(frames) * WaveWriter::bytesPerFrame;
    EXPECT_EQ(result.sizeBytes, bytes + WaveWriter::headerSize);
    EXPECT_EQ(std::filesystem::file_size(path), result.sizeBytes);
    EXPECT_EQ(headerField(path, 4), saturated(bytes + WaveWriter::headerSize - 8));
    EXPECT_EQ(headerField(path, 40), saturated(bytes));
  }

  static std::shared_ptr<PCMBuffer> quietBuffer(std::uint32_t frames) {
    auto buffer = PCMBuffer::create(AudioFormat::float32(48'000, 2, false), frames);
    buffer->setFrameLength(frames);
    for (float* channel : buffer->floatChannelData()) std::fill_n(channel, frames, 0.25F);
    return buffer;
  }

  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "long.wav";
  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::unique_ptr<VirtualPlatform> host;
  std::shared_ptr<AudioTapSession> session;
  std::optional<ResourceUse> afterFirstMinute;
  MixingModel model;
};

/// Both clocks are off by 300 ppm, one each way, far more than real ones, and both devices fail now
/// and then. What has to stay in memory is the lead of one source over the mixer: a tick takes 960
/// frames at most, so frames beyond that wait until the stop.
TEST_F(Endurance, DriftGapsAndBurstsLeaveMemoryAndCountsAsTheMixingRulesSay) {
  constexpr DeviceSettings quiet{.sampleRate = 48'000,
                                 .channelCount = 2,
                                 .interleaved = false,
                                 .toneFrequency = 440,
                                 .signal = Signal::nothing};
  start({.output = quiet, .microphone = quiet});
  DriftingSource system(300, 1);
  DriftingSource microphone(-300, 2);
  for (int minute = 1; minute <= minutesToRecord(); ++minute) {
    for (std::uint32_t tick = 0; tick < DriftingSource::ticksPerMinute; ++tick) {
      const std::uint32_t systemFrames = system.nextTick();
      const std::uint32_t microphoneFrames = microphone.nextTick();
      deliver(systemFrames, microphoneFrames);
      clock->advance(AudioTapSession::mixInterval);
      model.deliver(systemFrames, microphoneFrames);
      model.tick();
    }
    punch(path);
    ASSERT_EQ(std::filesystem::file_size(path),
              WaveWriter::headerSize +
                  WaveWriter::bytesPerFrame * static_cast<std::uint64_t>(model.written));
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

/// Devices that both have to be resampled, on clocks that agree: nothing may pile up at all.
TEST_F(Endurance, ResamplingLeavesMemoryFlat) {
  start({});
  const int minutes = minutesToRecord() / 5;
  for (int minute = 1; minute <= minutes; ++minute) {
    clock->advance(oneMinute);
    punch(path);
    ASSERT_NO_FATAL_FAILURE(expectFlat(0));
  }
  const StopResult result = session->stop();
  const auto frames = static_cast<std::int64_t>((result.sizeBytes - WaveWriter::headerSize) /
                                                WaveWriter::bytesPerFrame);
  expectFinished(result, frames);
  // The resamplers hold back some milliseconds of the last moment.
  EXPECT_NEAR(static_cast<double>(frames), 48'000.0 * 60 * minutes, 48'000 * 0.05);
}

}  // namespace
}  // namespace quenlor::test
