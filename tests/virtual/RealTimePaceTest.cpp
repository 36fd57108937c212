#include "platform/virtual/RealTimePace.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/virtual/ScriptedUse.h"

#include <condition_variable>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <numeric>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using namespace quenlor::platform::virtualhost;

std::size_t sizeOfAll(const std::vector<std::vector<float>>& buffers) {
  return std::accumulate(buffers.begin(), buffers.end(), std::size_t{0},
                         [](std::size_t sum, const auto& buffer) { return sum + buffer.size(); });
}

TEST(RealTimePaceTest, DeliversBothSourcesUntilStoppedAndNeverFasterThanTime) {
  const auto pace = std::make_shared<RealTimePace>();
  VirtualPlatform host(pace);
  ScriptedUse use(host);
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t buffers = 0;
  use.onBuffer = [&] {
    const std::lock_guard lock(mutex);
    ++buffers;
    changed.notify_all();
  };

  const auto start = pace->elapsed();
  use.setUp();
  {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, 10s, [&] { return buffers >= 10; }));
  }
  use.tearDown();
  const std::chrono::duration<double> span = pace->elapsed() - start;

  // No lock from here on: after the teardown no thread of the host may write to these.
  EXPECT_GE(use.systemBuffers.front().size(), 2U * 8 * 441);
  EXPECT_GE(use.microphoneBuffers.front().size(), 8U * 160);
  EXPECT_GE(use.systemBuffers.size(), 5U);
  EXPECT_EQ(sizeOfAll(use.systemBuffers) / 2 % 441, 0U);
  EXPECT_EQ(sizeOfAll(use.systemBuffers) / 2 / 441, sizeOfAll(use.microphoneBuffers) / 160);
  EXPECT_LE(static_cast<double>(sizeOfAll(use.microphoneBuffers)) / 16000, span.count());
  EXPECT_EQ(host.ledger()->aliveInAll(), 0U);
}

TEST(RealTimePaceTest, PlatformMayDieWhileItsDeviceRuns) {
  std::promise<void> firstBuffer;
  bool gone = false;
  {
    VirtualPlatform host(std::make_shared<RealTimePace>());
    platform::AudioObjectID device = 0;
    platform::AudioDeviceIOProcID ioProc{};
    std::size_t buffers = 0;
    const auto block = [&firstBuffer, &gone, buffers](platform::AudioBufferList) mutable {
      EXPECT_FALSE(gone);
      if (buffers++ == 0) firstBuffer.set_value();
    };
    ASSERT_EQ(host.hardware().createAggregateDevice({}, device), 0);
    ASSERT_EQ(host.hardware().createIOProcID(device, host.makeQueue("tap"), block, ioProc), 0);
    ASSERT_EQ(host.hardware().startDevice(device, ioProc), 0);
    EXPECT_EQ(firstBuffer.get_future().wait_for(10s), std::future_status::ready);
  }
  gone = true;
}

}  // namespace
}  // namespace quenlor::test
