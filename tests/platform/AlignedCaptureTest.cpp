#include "tests/platform/SimulatedCapture.h"
#include "tests/support/Tone.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using namespace platform;
using Clock = AlignedCapture::Clock;

constexpr double recordedRate = 48'000;

/// One source whose frames come every 20 ms, the channels interleaved, with the exact time.
struct Source {
  double rate;
  std::uint32_t channels;
  /// Gives the sample of a frame's channel.
  std::function<float(std::int64_t frame, std::uint32_t channel)> signal;
  /// By which fraction the device is fast.
  double drift = 0;
  std::int64_t frames = 0;
  std::vector<float> recorded[2] = {};
};

/// Records both for that long.
void record(Source& system, Source& microphone, std::chrono::milliseconds duration) {
  AlignedCapture capture(recordedRate);
  Clock::time_point now(1h);
  const auto add = [&](CaptureRole role, Source& source) {
    capture.add(role, source.rate, source.channels,
                [&source](const PlanarFrames& frames, std::size_t count) {
                  for (std::size_t channel = 0; channel < frames.channels(); ++channel) {
                    const std::span run(frames.data()[channel], count);
                    auto& target = source.recorded[channel];
                    target.insert(target.end(), run.begin(), run.end());
                  }
                });
  };
  const auto bring = [&](CaptureRole role, Source& source) {
    const double seconds = std::chrono::duration<double>(now - Clock::time_point(1h)).count();
    const double sounded = seconds * source.rate * (1 + source.drift);
    std::vector<float> samples;
    for (; static_cast<double>(source.frames) < sounded; ++source.frames)
      for (std::uint32_t channel = 0; channel < source.channels; ++channel)
        samples.push_back(source.signal(source.frames, channel));
    capture.lane(role)->append(samples);
    capture.lane(role)->observe(now, sounded - static_cast<double>(source.frames));
  };
  add(CaptureRole::system, system);
  add(CaptureRole::microphone, microphone);
  capture.begin(now);
  for (const auto end = now + duration; now < end;) {
    now += 20ms;
    bring(CaptureRole::system, system);
    bring(CaptureRole::microphone, microphone);
    capture.advance(now);
  }
  capture.endAt(now);
  capture.finish();
}

float noise(std::int64_t frame, std::uint32_t channel) {
  return std::sin(static_cast<float>((2 * frame + channel) % 99'991));
}

auto tone(double rate, double hertz) {
  return [=](std::int64_t frame, std::uint32_t) {
    const double angle = 2 * std::numbers::pi * hertz / rate * static_cast<double>(frame);
    return static_cast<float>(0.5 * std::sin(angle));
  };
}

TEST(AlignedCapture, LeavesSystemAudioAtTheRecordingsRateAsItIs) {
  Source system{recordedRate, 2, noise}, microphone{16'000, 1, noise};
  record(system, microphone, 2s);
  for (std::uint32_t channel = 0; channel < 2; ++channel) {
    ASSERT_EQ(system.recorded[channel].size(), 96'000u);
    for (std::size_t i = 0; i < 96'000; ++i)
      ASSERT_EQ(system.recorded[channel][i], noise(static_cast<std::int64_t>(i), channel));
  }
}

// From any rate, by one ratio or another, up to the last frame that sounded.
TEST(AlignedCapture, RecordsEachRateUpToTheEnd) {
  constexpr double hertz = 997;
  for (const double rate : {8e3, 11'025., 16e3, 22'050., 44.1e3, 48e3, 88.2e3, 96e3, 192e3}) {
    SCOPED_TRACE(rate);
    Source system{rate, 2, tone(rate, hertz)}, microphone{rate, 1, tone(rate, hertz)};
    record(system, microphone, 1s);
    for (const Source* source : {&system, &microphone}) {
      const std::vector<float>& recorded = source->recorded[0];
      ASSERT_EQ(recorded.size(), 48'000u);
      const ToneFit whole = fitTone(std::span(recorded).subspan(9600, 28'800), hertz, recordedRate);
      EXPECT_LT(whole.residualDecibels, -95);
      // Each frame is in its place, to a twentieth of a millisecond.
      EXPECT_NEAR(fitTone(recorded, hertz, recordedRate).phase, 0,
                  2 * std::numbers::pi * hertz * 50e-6);
      EXPECT_LT(fitTone(std::span(recorded).last(240), hertz, recordedRate).residualDecibels, -20);
    }
  }
}

/// What is no tone of about that pitch, in decibels: a correction may be off by a millionth.
double residualAbout(double hertz, std::span<const float> samples) {
  const std::size_t half = samples.size() / 2;
  for (int refinement = 0; refinement < 3; ++refinement) {
    const double before = fitTone(samples.first(half), hertz, recordedRate).phase;
    const double after = fitTone(samples.subspan(half), hertz, recordedRate).phase;
    const double turns = static_cast<double>(half) * hertz / recordedRate;
    const double advance = (after - before) / (2 * std::numbers::pi) - turns;
    hertz += (advance - std::round(advance)) * recordedRate / static_cast<double>(half);
  }
  return fitTone(samples, hertz, recordedRate).residualDecibels;
}

TEST(AlignedCapture, KeepsTheToneOfADriftingMicrophoneClean) {
  for (const double hertz : {997., 10'000.}) {
    constexpr double drift = 300e-6;
    Source system{recordedRate, 2, noise};
    Source microphone{recordedRate, 1, tone(recordedRate * (1 + drift), hertz), drift};
    record(system, microphone, 180s);
    const auto settled = std::span(microphone.recorded[0]).last(14'400).first(12'000);
    EXPECT_LT(residualAbout(hertz, settled), -95) << hertz;
  }
}

TEST(AlignedCapture, TakesWhatIsNotFiniteForSilence) {
  constexpr float bad[] = {std::numeric_limits<float>::quiet_NaN(),
                           std::numeric_limits<float>::infinity(),
                           -std::numeric_limits<float>::infinity()};
  const auto stuck = [&](std::int64_t frame, std::uint32_t channel) {
    return frame < 24'000 ? bad[frame % 3] : noise(frame, channel);
  };
  for (const double rate : {recordedRate, 44'100.}) {
    Source system{rate, 2, stuck}, microphone{48'000, 6, stuck};
    record(system, microphone, 1s);
    for (const auto& channel :
         {system.recorded[0], system.recorded[1], microphone.recorded[0], microphone.recorded[1]}) {
      ASSERT_EQ(channel.size(), 48'000u);
      for (const float sample : channel) ASSERT_TRUE(std::isfinite(sample));
      EXPECT_EQ(channel[20'000], 0);
      EXPECT_NE(channel[40'000], 0);
    }
  }
}

SimulatedDevice device() {
  return {.rate = 1000, .observations = {{0.1, 0}}};
}

// While one source is away the other goes on, and what comes again finds its place.
TEST(AlignedCapture, PutsSilenceOfItsLengthForWhatWasLost) {
  for (const double away : {0.1, 0.4, 3., 20.}) {
    for (const bool isSystem : {true, false}) {
      SCOPED_TRACE(std::to_string(away) +
                   (isSystem ? " s of system audio" : " s of the microphone"));
      SimulatedCapture capture(1000, device(), device());
      SimulatedDevice& lossy = isSystem ? capture.system : capture.microphone;
      capture.run(2);
      const double distance = capture.distance();
      lossy.loses = true;
      capture.run(away);
      lossy.loses = false;
      capture.run(3);
      EXPECT_NEAR(capture.distance(), distance, 0.002);
      capture.finish();
      EXPECT_NEAR(capture.recordedSeconds(), 5 + away, 0.002);
      const auto role = isSystem ? CaptureRole::system : CaptureRole::microphone;
      const auto other = isSystem ? CaptureRole::microphone : CaptureRole::system;
      EXPECT_NEAR(static_cast<double>(capture.framesLost(role)), 1000 * away, 20);
      EXPECT_EQ(capture.framesLost(other), 0);
    }
  }
}

TEST(AlignedCapture, PutsNoMoreThanAMinuteOfSilenceForAProgramThatWasStopped) {
  SimulatedCapture capture(1000, device(), device());
  capture.run(2);
  capture.system.loses = capture.microphone.loses = true;
  capture.pause(5000);
  capture.system.loses = capture.microphone.loses = false;
  capture.run(3);
  capture.finish();
  EXPECT_NEAR(capture.recordedSeconds(), 65, 0.05);
  EXPECT_NEAR(capture.distance(), 0, 0.002);
}

// What only comes late is no loss, unless it is later than a source is waited for.
TEST(AlignedCapture, TakesABurstForWhatItIs) {
  for (const double late : {0.1, 0.4, 3.}) {
    SCOPED_TRACE(late);
    SimulatedCapture capture(1000, device(), device());
    capture.run(2);
    const double distance = capture.distance();
    capture.system.isHeld = true;
    capture.run(late);
    capture.system.isHeld = false;
    capture.run(3);
    EXPECT_NEAR(capture.distance(), distance, 0.002);
    capture.finish();
    EXPECT_NEAR(capture.recordedSeconds(), 5 + late, 0.002);
    if (late < 0.5) {
      EXPECT_EQ(capture.framesLost(CaptureRole::system), 0);
    }
  }
}

// After this program did not run for three seconds, a server hands over what it kept of one source
// before it comes to the other.
TEST(AlignedCapture, WaitsForASourceWhileTheServerCatchesUpWithTheOther) {
  AlignedCapture capture(1000);
  Clock::time_point now(1h);
  std::size_t sounded = 0, recorded = 0;
  const auto add = [&](CaptureRole role) {
    return &capture.add(role, 1000, 1,
                        [&](const PlanarFrames&, std::size_t count) { recorded += count; });
  };
  CaptureLane* const lanes[] = {add(CaptureRole::system), add(CaptureRole::microphone)};
  std::size_t brought[] = {0, 0};
  const auto bring = [&](std::size_t lane, std::size_t frames) {
    lanes[lane]->append(std::vector<float>(frames, 0.5F));
    brought[lane] += frames;
    lanes[lane]->observe(now, static_cast<double>(sounded - brought[lane]));
  };
  const auto serve = [&](std::size_t systemFrames, std::size_t microphoneFrames) {
    now += 20ms;
    sounded += 20;
    bring(0, systemFrames);
    if (microphoneFrames > 0) bring(1, microphoneFrames);
    capture.advance(now);
  };
  capture.begin(now);
  for (int i = 0; i < 100; ++i) serve(20, 20);
  now += 3s;
  sounded += 3000;
  for (int i = 0; i < 60; ++i) serve(70, 0);
  serve(20, sounded + 20 - brought[1]);
  for (int i = 0; i < 50; ++i) serve(20, 20);
  capture.endAt(now);
  capture.finish();
  for (const CaptureLane* lane : lanes) EXPECT_EQ(lane->framesLost(), 0);
  EXPECT_EQ(recorded, 2 * sounded);
}

/// Two sources at 1000 Hz, served every 20 ms, and what of the microphone was recorded.
struct TwoSources {
  TwoSources() {
    system = &capture.add(CaptureRole::system, 1000, 1, [](const PlanarFrames&, std::size_t) {});
    microphone = &capture.add(CaptureRole::microphone, 1000, 1,
                              [this](const PlanarFrames& frames, std::size_t count) {
                                const std::span taken(frames.data()[0], count);
                                recorded.insert(recorded.end(), taken.begin(), taken.end());
                              });
    capture.begin(now);
  }

  void serve(bool bringsSystemAudio, std::optional<double> microphonesFramesToCome,
             std::chrono::milliseconds time = 20ms) {
    now += time;
    const std::vector<float> frames(static_cast<std::size_t>(time.count()), 0.5F);
    if (bringsSystemAudio) {
      system->append(frames);
      system->observe(now, 0);
    }
    microphone->append(frames);
    if (microphonesFramesToCome) microphone->observe(now, *microphonesFramesToCome);
    capture.advance(now);
  }

  AlignedCapture capture{1000};
  Clock::time_point now{1h};
  CaptureLane* system;
  CaptureLane* microphone;
  std::vector<float> recorded;
};

// A microphone that was placed too early, and is only gradually brought back, is waited for all the
// same.
TEST(AlignedCapture, IsNotCompleteBeforeEachSourceReachesTheEnd) {
  TwoSources sources;
  for (int i = 0; i < 15; ++i) sources.serve(true, 8);
  for (int i = 0; i < 100; ++i) sources.serve(true, 0);
  sources.capture.endAt(sources.now);
  for (int i = 0; i < 20 && !sources.capture.isComplete(); ++i) sources.serve(true, 0, 1ms);
  EXPECT_TRUE(sources.capture.isComplete());
  sources.capture.finish();
  EXPECT_NEAR(sources.recorded.back(), 0.5, 0.1);
}

TEST(AlignedCapture, DoesNotWaitForASilentSourceBesideALateOne) {
  TwoSources sources;
  for (int i = 0; i < 100; ++i) sources.serve(true, 300);
  for (int i = 0; i < 100; ++i) sources.serve(false, 300);
  EXPECT_GT(sources.recorded.size(), 3000u);
  EXPECT_TRUE(sources.system->hasTimedOut());
}

TEST(AlignedCapture, TakesTheTimeOfArrivalWhereTheServerTellsNone) {
  TwoSources sources;
  for (int i = 0; i < 250; ++i) sources.serve(true, std::nullopt);
  const auto heard = std::ranges::count_if(sources.recorded, [](float x) { return x > 0.4; });
  EXPECT_GT(heard, 2500);
}

}  // namespace
}  // namespace quenlor::test
