#include "SessionFixture.h"
#include "platform/virtual/RealTimePace.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quenlor::test {
namespace {

using platform::virtualhost::RealTimePace;

/// Sessions on real threads: what a single-threaded run cannot show.
class SessionThreads : public testing::Test {
 protected:
  std::shared_ptr<AudioTapSession> makeSession(const VirtualSettings& settings = {}) {
    platform = std::make_unique<VirtualPlatform>(std::make_shared<RealTimePace>(), settings);
    return std::make_shared<AudioTapSession>(
        StartRequest{"mixed", (folder / "recording.wav").string(), ""}, *platform);
  }

  const TemporaryFolder folder;
  std::unique_ptr<VirtualPlatform> platform;
};

TEST_F(SessionThreads, StartAndStopManyTimes) {
  for (int i = 0; i < 50; ++i) {
    auto session = makeSession();
    session->start();
    if (i % 3 == 0) {
      session->discardIfUnfinished();
    } else {
      EXPECT_GE(session->stop().sizeBytes, 44U);
    }
    session.reset();
    const auto ledger = platform->ledger();
    platform.reset();
    ASSERT_EQ(ledger->aliveInAll(), 0U);
    ASSERT_TRUE(ledger->misuses().empty());
  }
}

TEST_F(SessionThreads, StopsWhileBuffersPourIn) {
  auto session = makeSession(VirtualSettings());
  session->start();
  std::atomic<int> delivered{0};
  std::atomic<bool> ended{false};
  const auto pour = [&](auto deliver) {
    return std::thread([&, deliver] {
      try {
        while (!ended) {
          deliver();
          ++delivered;
        }
      } catch (const std::logic_error&) {
        // The stop has taken the receiver away, which is what this waits for.
      }
    });
  };
  std::vector<float> samples(882, 0.1F);
  const platform::AudioBuffer buffer{2, 882 * 4, samples.data()};
  std::thread system = pour([&] { platform->deliverSystem({&buffer, 1}); });
  std::thread microphone = pour([&] {
    auto input = platform::PCMBuffer::create(platform::AudioFormat::float32(16'000, 1, false), 160);
    input->setFrameLength(160);
    std::fill_n(input->floatChannelData()[0], 160, 0.1F);
    platform->deliverMicrophone(input);
  });
  while (delivered < 50) std::this_thread::yield();
  const StopResult result = session->stop();
  ended = true;
  system.join();
  microphone.join();
  EXPECT_GT(readWaveFile(folder / "recording.wav").left.size(), 441U);
  EXPECT_EQ(result.sizeBytes, std::filesystem::file_size(folder / "recording.wav"));
}

}  // namespace
}  // namespace quenlor::test
