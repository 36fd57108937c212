#include "SessionFixture.h"
#include "tests/support/Tone.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

class SessionLifecycle : public SessionFixture {};

/// Least-squares fit over the samples from first up to last.
ToneFit fit(const std::vector<float>& samples, std::size_t first, std::size_t last,
            double frequency) {
  return fitTone(std::span(samples).subspan(first, last - first), frequency, 48'000);
}

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

  std::vector<float> system = file.left;
  for (std::size_t i = 0; i < system.size(); ++i) system[i] -= file.right[i];
  // A tone that sets in is not a pure tone yet: the resampler rings with it for 2 ms.
  const std::size_t onset = 96;
  const std::size_t whole = file.left.size() - 48'000 * 25 / 1000;
  for (const auto& [samples, frequency] :
       {std::pair<const std::vector<float>*, double>{&system, 440}, {&file.right, 1000}}) {
    EXPECT_EQ(
        findBreaks(std::span(*samples).subspan(onset, whole - onset), frequency, 48'000, 0.0002),
        std::vector<std::size_t>());
    const ToneFit tone = fit(*samples, 0, whole, frequency);
    EXPECT_NEAR(tone.amplitude, 0.25, 1e-5);
    EXPECT_NEAR(tone.phase, 0, 1e-3) << "the first frame recorded is the first that was played";
    EXPECT_LT(fit(*samples, onset, whole, frequency).residualDecibels, -75)
        << "no worse than 16 bits at this level";
  }
  expectEverythingReleased();
}

TEST_F(SessionLifecycle, RecordsAnHourWithoutFallingBehind) {
  makeSession({});
  session->start();
  clock->advance(3600s);
  const StopResult result = session->stop();
  EXPECT_EQ(result.durationSeconds, 3600.0);
  const double recorded = static_cast<double>(result.sizeBytes - 44) / 4 / 48'000;
  EXPECT_GT(recorded, 3599.97);
  EXPECT_LE(recorded, 3600.0);
  const WaveFile file = recording();
  const std::size_t last = file.left.size() - 48'000;
  const ToneFit system = fit(file.left, last - 48'000, last, 440);
  EXPECT_NEAR(system.amplitude, 0.25, 1e-4) << "still there in the last second";
}

TEST_F(SessionLifecycle, CallsThePlatformInOrder) {
  makeSession({});
  session->start();
  clock->advance(100ms);
  session->stop();
  EXPECT_EQ(ledger().calls(), (std::vector<std::string>{"makeEngine",
                                                        "makeQueue",
                                                        "makeQueue",
                                                        "authorizationStatus",
                                                        "inputFormat",
                                                        "makeConverter",
                                                        "removeTap",
                                                        "installTap",
                                                        "engine.prepare",
                                                        "engine.start",
                                                        "getPropertyData(dOut)",
                                                        "getPropertyData(uid )",
                                                        "createProcessTap",
                                                        "createAggregateDevice",
                                                        "getPropertyData(tuid)",
                                                        "setPropertyData(tap#)",
                                                        "getPropertyData(sfmt)",
                                                        "makeFormat",
                                                        "createIOProcID",
                                                        "startDevice",
                                                        "makeTimer",
                                                        "currentTime",
                                                        "makeConverter",
                                                        "engine.isRunning",
                                                        "removeTap",
                                                        "engine.stop",
                                                        "stopDevice",
                                                        "destroyIOProcID",
                                                        "destroyAggregateDevice",
                                                        "destroyProcessTap",
                                                        "currentTime"}));
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
  makeSession({});
  session->start();
  clock->advance(1s);
  session->discardIfUnfinished();
  EXPECT_FALSE(fileExists());
  session->discardIfUnfinished();
  EXPECT_EQ(ledger().count("destroyProcessTap"), 1U);
  EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
  expectEverythingReleased();
}

TEST_F(SessionLifecycle, GivesAFileWithoutFramesWhereNothingPlays) {
  makeSession(exactDevices());
  session->start();
  clock->advance(3s);
  EXPECT_EQ(session->stop(), (StopResult{3.0, 44}));
  EXPECT_TRUE(recording().left.empty());
}

TEST_F(SessionLifecycle, LeavesAnExistingFileAloneWhereThereIsNoSoundSystem) {
  std::filesystem::create_directory(folder / "kept");
  const auto kept = folder / "kept/recording.wav";
  platform = std::make_unique<VirtualPlatform>(clock);
  WaveWriter(kept.string()).finalize(0);
  ledger().failNamed("makeEngine");
  EXPECT_THROW(AudioTapSession(StartRequest{"mixed", kept.string(), ""}, *platform),
               platform::PlatformError);
  EXPECT_EQ(std::filesystem::file_size(kept), 44U);
}

}  // namespace
}  // namespace quenlor::test
