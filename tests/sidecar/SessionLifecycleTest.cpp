#include "SessionFixture.h"
#include "WatchedPlatform.h"
#include "tests/support/Tone.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

class SessionLifecycle : public SessionFixture {};

TEST_F(SessionLifecycle, RecordsBothTonesExactly) {
  VirtualSettings settings;
  settings.output->toneChannels = 1;  // left only: the right channel is the microphone alone
  makeSession(settings);
  session->start();
  clock->advance(10s);
  const StopResult result = session->stop();
  const WaveFile file = recording();
  EXPECT_EQ(result.durationSeconds, 10.0);
  EXPECT_EQ(result.sizeBytes, 44 + 4 * file.left.size());
  // What the resamplers still hold is all that is missing.
  EXPECT_GT(file.durationSeconds(), 9.97);
  EXPECT_LE(file.durationSeconds(), 10.0);

  const std::vector<float> system = file.leftAlone();
  // A tone that sets in is not a pure tone yet: the resampler rings with it for 2 ms.
  const std::size_t onset = 96;
  const std::size_t whole = file.left.size() - 48'000 * 25 / 1000;
  for (const auto& [samples, frequency] :
       {std::pair<const std::vector<float>*, double>{&system, 440}, {&file.right, 1000}}) {
    const std::span<const float> steady = std::span(*samples).subspan(onset, whole - onset);
    EXPECT_EQ(findBreaks(steady, frequency, 48'000, 0.0002), std::vector<std::size_t>());
    const ToneFit tone = fitTone(std::span(*samples).first(whole), frequency, 48'000);
    EXPECT_NEAR(tone.amplitude, 0.25, 1e-5);
    EXPECT_NEAR(tone.phase, 0, 1e-3) << "the first frame recorded is the first that was played";
    EXPECT_LT(fitTone(steady, frequency, 48'000).residualDecibels, -75)
        << "no worse than 16 bits at this level";
  }
  expectEverythingReleased();
}

TEST_F(SessionLifecycle, CallsThePlatformInOrder) {
  makeSession({});
  session->start();
  clock->advance(100ms);
  session->stop();
  std::string calls;
  for (const std::string& call : ledger().calls()) calls += call + ' ';
  EXPECT_EQ(calls,
            "makeEngine makeQueue makeQueue authorizationStatus "
            "inputFormat makeConverter removeTap installTap(1024) engine.prepare engine.start "
            "getPropertyData(dOut) getPropertyData(uid ) createProcessTap createAggregateDevice "
            "getPropertyData(tuid) setPropertyData(tap#) getPropertyData(sfmt) makeFormat "
            "createIOProcID startDevice makeTimer schedule(20000000,20000000,0) currentTime "
            "makeConverter "  // the system's, with its first samples
            "engine.isRunning removeTap engine.stop stopDevice destroyIOProcID "
            "destroyAggregateDevice destroyProcessTap currentTime ");
  EXPECT_EQ(ledger().misuses(), std::vector<std::string>());
}

TEST_F(SessionLifecycle, StopsOnce) {
  makeSession({});
  EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
  session->start();
  clock->advance(1s);
  const StopResult result = session->stop();
  std::filesystem::resize_file(path, 7);
  clock->advance(1s);
  EXPECT_EQ(session->stop(), result);
  EXPECT_EQ(std::filesystem::file_size(path), 7U) << "the file is not touched again";
  session->discardIfUnfinished();
  EXPECT_TRUE(fileExists()) << "a finalized recording stays";
  expectEverythingReleased();
}

TEST_F(SessionLifecycle, DiscardsARunningRecordingOnce) {
  makeSession(exactDevices());
  session->start();
  clock->advance(1s);
  deliverSystem(std::vector<float>(100, 0.5F));
  deliverMicrophone(std::vector<float>(100, 0.5F));
  session->discardIfUnfinished();
  EXPECT_EQ(ledger().alive(ObjectKind::buffer), 0U) << "work that waited on the queue is done";
  EXPECT_FALSE(fileExists());
  session->discardIfUnfinished();
  EXPECT_EQ(ledger().count("destroyProcessTap"), 1U);
  EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
  expectEverythingReleased();
}

/// Nothing that the host holds keeps the session alive, and none of it needs the session: not the
/// blocks, not the timer, not work that waits.
TEST_F(SessionLifecycle, EndsWithItsOwnersReference) {
  const std::vector<float> samples(100, 0.5F);
  for (const bool workWaits : {false, true}) {
    makePlatform(exactDevices());
    WatchedPlatform host(*platform);
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

}  // namespace
}  // namespace quenlor::test
