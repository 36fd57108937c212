#include "SessionFixture.h"
#include "platform/ForwardingPlatform.h"
#include "platform/virtual/RealTimePace.h"
#include "tests/platform/Gate.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioFormat;
using platform::virtualhost::RealTimePace;

/// Holds one conversion open, which fails in the end: no further work comes of it.
class HoldingPlatform final : public platform::ForwardingPlatform {
 public:
  using ForwardingPlatform::ForwardingPlatform;
  std::shared_ptr<platform::AudioConverter> makeConverter(const AudioFormat& /*from*/,
                                                          const AudioFormat& /*to*/) override {
    return std::make_shared<Converter>(*this);
  }

  Gate entered, released;

 private:
  struct Converter final : platform::AudioConverter {
    explicit Converter(HoldingPlatform& holdingHost) : host(holdingHost) {}
    platform::ConverterOutputStatus convert(platform::PCMBuffer& /*output*/,
                                            std::exception_ptr& /*error*/,
                                            const InputBlock& /*input*/) override {
      host.entered.open();
      host.released.await();
      return platform::ConverterOutputStatus::error;
    }
    HoldingPlatform& host;
  };
};

/// Sessions on real threads: what a single-threaded run cannot show.
class SessionThreads : public testing::Test {
 protected:
  void makePlatform(Signal signal = Signal::tone) {
    VirtualSettings settings;
    settings.output->signal = settings.microphone->signal = signal;
    platform = std::make_unique<VirtualPlatform>(std::make_shared<RealTimePace>(), settings);
  }
  std::shared_ptr<AudioTapSession> startSession(platform::AudioPlatform& host) const {
    auto session = std::make_shared<AudioTapSession>(StartRequest{"mixed", path, ""}, host);
    session->start();
    return session;
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

  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "recording.wav";
  std::unique_ptr<VirtualPlatform> platform;
};

TEST_F(SessionThreads, StartAndStopManyTimes) {
  for (int i = 0; i < 50; ++i) {
    makePlatform();
    auto session = startSession(*platform);
    if (i % 3 != 0) session->stop();
    session->discardIfUnfinished();
    session.reset();
    const auto ledger = platform->ledger();
    platform.reset();
    ASSERT_EQ(ledger->aliveInAll(), 0U);
    ASSERT_TRUE(ledger->misuses().empty());
  }
}

TEST_F(SessionThreads, StopsWhileBuffersPourIn) {
  makePlatform();
  const auto session = startSession(*platform);
  std::atomic<int> delivered{0};
  const auto pour = [&](bool fromMicrophone) {
    try {
      for (;; ++delivered) deliver(fromMicrophone);
    } catch (const std::logic_error&) {
      // The stop has taken the receiver away, which is what this waits for.
    }
  };
  std::thread system(pour, false), microphone(pour, true);
  while (delivered < 50) std::this_thread::yield();
  const StopResult result = session->stop();
  system.join();
  microphone.join();
  EXPECT_GT(readWaveFile(path).left.size(), 441U);
  EXPECT_EQ(result.sizeBytes, std::filesystem::file_size(path));
}

/// Lets go of a session while work that a delivery leads to is under way on either queue.
TEST_F(SessionThreads, TheLastReferenceMayDieInWorkThatIsUnderWay) {
  for (const bool fromMicrophone : {false, true}) {
    makePlatform(Signal::nothing);
    HoldingPlatform host(*platform);
    auto session = startSession(host);
    std::thread device([&] { deliver(fromMicrophone); });
    host.entered.await();
    const std::weak_ptr<AudioTapSession> weak = session;
    session.reset();
    EXPECT_FALSE(weak.expired()) << "the work under way has it";
    host.released.open();
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
