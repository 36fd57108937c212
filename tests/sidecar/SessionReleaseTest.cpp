#include "SessionFixture.h"
#include "platform/ForwardingPlatform.h"
#include "platform/virtual/RealTimePace.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioConverter;
using platform::AudioEngine;
using platform::AudioFormat;
using platform::virtualhost::RealTimePace;
using std::chrono_literals::operator""s;

/// Leaves its tap's block with the test, as a host does that is slow to let go of it.
class KeepingEngine final : public platform::ForwardingEngine {
 public:
  KeepingEngine(std::unique_ptr<AudioEngine> engine, TapBlock& keptBlock)
      : ForwardingEngine(std::move(engine)), kept(keptBlock) {}
  void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                  TapBlock block) override {
    kept = block;
    ForwardingEngine::installTap(bus, bufferSize, format, std::move(block));
  }

 private:
  TapBlock& kept;
};

class KeepingPlatform final : public platform::ForwardingPlatform {
 public:
  using ForwardingPlatform::ForwardingPlatform;
  std::unique_ptr<AudioEngine> makeEngine() override {
    return std::make_unique<KeepingEngine>(ForwardingPlatform::makeEngine(), tapBlock);
  }

  AudioEngine::TapBlock tapBlock;
};

class SessionRelease : public SessionFixture {};

/// Nothing that the host holds keeps the session alive, and none of it needs the session: not the
/// blocks, not the timer, not work that waits.
TEST_F(SessionRelease, EndsWithItsOwnersReference) {
  const std::vector<float> samples(100, 0.5F);
  for (const bool workWaits : {false, true}) {
    makePlatform(exactDevices());
    KeepingPlatform host(*platform);
    makeSessionOn(host);
    session->start();
    if (workWaits) {
      deliverSystem(samples);
      deliverMicrophone(samples);
    }
    const std::weak_ptr<AudioTapSession> gone = session;
    session.reset();
    EXPECT_TRUE(gone.expired()) << workWaits;
    const auto buffers = ledger().count("makeBuffer");
    deliverSystem(samples);
    host.tapBlock(stereoBuffer(samples, samples));
    clock->advance(1s);
    EXPECT_EQ(ledger().count("makeBuffer"), buffers);
    EXPECT_EQ(ledger().alive(ObjectKind::buffer), 0U);
    EXPECT_EQ(ledger().alive(ObjectKind::timer), 0U);
    EXPECT_EQ(std::filesystem::file_size(path), 44U);
    EXPECT_EQ(ledger().count("stopDevice"), 0U) << "destroying a session stops nothing";
  }
}

/// One conversion that is held open, and the thread on which the session's engine dies.
struct HeldWork {
  std::promise<std::thread::id> entered;
  std::promise<void> released;
  std::promise<std::thread::id> engineDied;
};

/// Fails in the end, so that no further work comes of it that could have the last reference.
class HeldConverter final : public AudioConverter {
 public:
  explicit HeldConverter(HeldWork& heldWork) : held(heldWork) {}
  platform::ConverterOutputStatus convert(platform::PCMBuffer& /*output*/,
                                          std::exception_ptr& /*error*/,
                                          const InputBlock& /*input*/) override {
    held.entered.set_value(std::this_thread::get_id());
    held.released.get_future().wait();
    return platform::ConverterOutputStatus::error;
  }

 private:
  HeldWork& held;
};

class WatchedEngine final : public platform::ForwardingEngine {
 public:
  WatchedEngine(std::unique_ptr<AudioEngine> engine, HeldWork& heldWork)
      : ForwardingEngine(std::move(engine)), held(heldWork) {}
  ~WatchedEngine() override { held.engineDied.set_value(std::this_thread::get_id()); }

 private:
  HeldWork& held;
};

class SilentTimer final : public platform::ForwardingTimer {
 public:
  using ForwardingTimer::ForwardingTimer;
  void resume() override {}
};

/// Holds conversions, and has no ticks: one could have the last reference as well.
class HoldingPlatform final : public platform::ForwardingPlatform {
 public:
  HoldingPlatform(AudioPlatform& realPlatform, HeldWork& heldWork)
      : ForwardingPlatform(realPlatform), held(heldWork) {}
  std::unique_ptr<AudioEngine> makeEngine() override {
    return std::make_unique<WatchedEngine>(ForwardingPlatform::makeEngine(), held);
  }
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& /*from*/,
                                                const AudioFormat& /*to*/) override {
    return std::make_shared<HeldConverter>(held);
  }
  std::unique_ptr<platform::DispatchTimer> makeTimer(
      std::shared_ptr<platform::DispatchQueue> queue) override {
    return std::make_unique<SilentTimer>(ForwardingPlatform::makeTimer(std::move(queue)));
  }

 private:
  HeldWork& held;
};

/// The thread that a promise comes to name; none after 10 seconds, when it is no use to wait.
std::thread::id awaited(std::promise<std::thread::id>& promise) {
  auto future = promise.get_future();
  return future.wait_for(10s) == std::future_status::ready ? future.get() : std::thread::id();
}

/// Real threads: lets go of a session while work that a delivery leads to is under way, and expects
/// that work to take the session with it. deliver gives the thread that does not return before the
/// work does, if there is one.
void expectDeathInTheWorkOf(const std::function<std::thread(VirtualPlatform&)>& deliver) {
  const TemporaryFolder folder;
  VirtualSettings settings;
  settings.output->signal = settings.microphone->signal = Signal::nothing;
  HeldWork held;  // outlives even a session that the host keeps
  VirtualPlatform platform(std::make_shared<RealTimePace>(), settings);
  HoldingPlatform host(platform, held);
  auto session = std::make_shared<AudioTapSession>(
      StartRequest{"mixed", (folder / "a.wav").string(), ""}, host);
  session->start();
  std::thread device = deliver(platform);
  const std::thread::id work = awaited(held.entered);
  EXPECT_NE(work, std::thread::id());
  const std::weak_ptr<AudioTapSession> weak = session;
  session.reset();
  EXPECT_FALSE(weak.expired()) << "the work under way has it";
  held.released.set_value();
  if (device.joinable()) device.join();
  EXPECT_EQ(awaited(held.engineDied), work);
  // What the engine forwards to dies after it, and has to do so before the platform.
  while (platform.ledger()->alive(ObjectKind::engine) != 0) std::this_thread::yield();
}

TEST(SessionLastReference, MayDieAsWorkOfTheCallbackQueue) {
  expectDeathInTheWorkOf([](VirtualPlatform& platform) {
    return std::thread([&platform] {
      std::array<float, 882> samples{};
      const platform::AudioBuffer buffer{2, sizeof(samples), samples.data()};
      platform.deliverSystem({&buffer, 1});
    });
  });
}

TEST(SessionLastReference, MayDieAsWorkOfTheMixQueue) {
  expectDeathInTheWorkOf([](VirtualPlatform& platform) {
    auto buffer = platform::PCMBuffer::create(AudioFormat::float32(16'000, 1, false), 160);
    buffer->setFrameLength(160);
    platform.deliverMicrophone(std::move(buffer));
    return std::thread();
  });
}

}  // namespace
}  // namespace quenlor::test
