#include "SessionFixture.h"
#include "platform/virtual/RealTimePace.h"
#include "tests/platform/Gate.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioFormat;

/// Sessions on real threads: what a single-threaded run cannot show.
class SessionThreads : public SessionFixture {
 protected:
  void makeRealTimePlatform(Signal signal = Signal::tone) {
    VirtualSettings settings;
    settings.output->signal = settings.microphone->signal = signal;
    makePlatform(settings, std::make_shared<platform::virtualhost::RealTimePace>());
  }
  void startSessionOn(platform::AudioPlatform& host) {
    makeSessionOn(host);
    session->start();
  }
  void deliver(bool fromMicrophone) const {
    std::vector<float> samples(882, 0.1F);
    const platform::AudioBuffer buffer{2, 882 * 4, samples.data()};
    if (!fromMicrophone) return platform->deliverSystem({&buffer, 1});
    auto input = platform::PCMBuffer::create(AudioFormat::float32(16'000, 1, false), 160);
    input->setFrameLength(160);
    std::fill_n(input->floatChannelData()[0], 160, 0.1F);
    platform->deliverMicrophone(input);
  }
};

TEST_F(SessionThreads, EndsManyTimesWhileBuffersPourIn) {
  for (int round = 0; round < 20; ++round) {
    makeRealTimePlatform();
    startSessionOn(*platform);
    std::atomic<int> delivered{0};
    const auto pour = [&](bool fromMicrophone) {
      try {
        for (;; ++delivered, std::this_thread::yield()) deliver(fromMicrophone);
      } catch (const std::logic_error&) {
        // The end of capture has taken the receiver away, which is what this waits for.
      }
    };
    std::thread system(pour, false), microphone(pour, true);
    while (delivered < 20) std::this_thread::yield();
    const bool stops = round % 2 == 0;
    const std::uint64_t size = stops ? session->stop().sizeBytes : 0;
    session->discardIfUnfinished();
    system.join();
    microphone.join();
    ASSERT_EQ(fileExists(), stops);
    if (stops) {
      ASSERT_EQ(size, std::filesystem::file_size(path));
      ASSERT_GT(recording().left.size(), 441U);
    }
    session.reset();
    const auto ledger = platform->ledger();
    platform.reset();
    ASSERT_EQ(ledger->aliveInAll(), 0U);
    ASSERT_TRUE(ledger->misuses().empty());
  }
}

/// Lets go of a session while work that a delivery leads to is under way on either queue.
TEST_F(SessionThreads, TheLastReferenceMayDieInWorkThatIsUnderWay) {
  for (const bool fromMicrophone : {false, true}) {
    makeRealTimePlatform(Signal::nothing);
    ConvertingPlatform host(*platform);
    Gate entered, released;
    // Holds the conversion open, which fails in the end: no further work comes of it.
    host.convert = [&](auto& /*output*/, auto& /*error*/, const auto& /*input*/) {
      entered.open();
      released.await();
      return platform::ConverterOutputStatus::error;
    };
    startSessionOn(host);
    std::thread device([&] { deliver(fromMicrophone); });
    entered.await();
    const std::weak_ptr<AudioTapSession> weak = session;
    session.reset();
    EXPECT_FALSE(weak.expired()) << "the work under way has it";
    released.open();
    device.join();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (platform->ledger()->alive(ObjectKind::engine) != 0 &&
           std::chrono::steady_clock::now() < limit)
      std::this_thread::yield();
    EXPECT_TRUE(weak.expired());
  }
}

}  // namespace
}  // namespace quenlor::test
