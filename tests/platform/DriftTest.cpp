#include "tests/platform/SimulatedCapture.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>

namespace quenlor::test {
namespace {

using platform::CaptureRole;

constexpr double simulatedRate = 1000;

SimulatedCapture captureWith(const std::string& server, double microphoneDrift) {
  return {simulatedRate,
          {.rate = simulatedRate, .observations = recordedObservations(server + "-system")},
          {.rate = simulatedRate,
           .observations = recordedObservations(server + "-microphone"),
           .drift = microphoneDrift}};
}

/// What was largest in a stretch of the recording.
struct Largest {
  /// Of the distances, compared with the first one.
  double distance = 0;
  /// Of the changes of the correction within a second.
  double change = 0;
};

Largest largestOf(SimulatedCapture& capture, double first, double seconds) {
  Largest largest;
  double earlier = capture.correction(), previous = earlier;
  for (double end = capture.now() + seconds; capture.now() < end;) {
    capture.run(0.5);
    largest.distance = std::max(largest.distance, std::abs(capture.distance() - first));
    largest.change = std::max(largest.change, std::abs(capture.correction() - earlier));
    earlier = std::exchange(previous, capture.correction());
  }
  return largest;
}

struct DriftCase {
  std::string server;
  double drift;
  // Within the first half minute, the second, and from then on.
  double limits[3];
};

class Drift : public testing::TestWithParam<DriftCase> {};

TEST_P(Drift, IsTakenOut) {
  const DriftCase& param = GetParam();
  SimulatedCapture capture = captureWith(param.server, param.drift);
  capture.run(1);
  const double first = capture.distance();
  const double lengths[] = {29, 30, 540};
  for (std::size_t i = 0; i < std::size(lengths); ++i) {
    const Largest largest = largestOf(capture, first, lengths[i]);
    EXPECT_LE(largest.distance, param.limits[i])
        << "stretch " << i << ", correction " << capture.correction();
    if (i > 0) {
      EXPECT_LE(largest.change, 20e-6);
    }
  }
  EXPECT_NEAR(capture.correction(), param.drift, 30e-6);
  EXPECT_EQ(capture.framesLost(CaptureRole::system), 0);
  EXPECT_EQ(capture.framesLost(CaptureRole::microphone), 0);
}

std::vector<DriftCase> driftCases() {
  std::vector<DriftCase> cases;
  for (const std::string server : {"pulseaudio-idle", "pulseaudio-busy"}) {
    for (const double drift : {-300e-6, -100e-6, 100e-6, 300e-6})
      cases.push_back({server, drift, {0.006, 0.003, 0.003}});
    for (const double drift : {-1000e-6, 1000e-6})
      cases.push_back({server, drift, {0.015, 0.015, 0.003}});
  }
  for (const std::string server : {"pipewire-idle", "pipewire-busy", "pipewire-8192-busy"})
    cases.push_back({server, 0, {0.002, 0.002, 0.002}});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(OfTheMicrophone, Drift, testing::ValuesIn(driftCases()),
                         [](const auto& instance) {
                           std::string name =
                               instance.param.server + "_" +
                               std::to_string(std::lround(instance.param.drift * 1e6));
                           std::ranges::replace(name, '-', '_');
                           return name;
                         });

// The correction neither builds up errors nor memory.
TEST(DriftOfADay, StaysTakenOutWhileClocksWander) {
  SimulatedCapture capture = captureWith("pulseaudio-busy", 300e-6);
  capture.system.drift = -300e-6;
  std::mt19937 random(1);
  std::normal_distribution<double> minutesChange(0, 1e-6);
  capture.run(60);
  const double first = capture.distance();
  for (int minute = 1; minute < 24 * 60; ++minute) {
    capture.system.drift += minutesChange(random);
    capture.microphone.drift += minutesChange(random);
    // Once in a while a source's samples come late, all at once.
    SimulatedDevice& late = minute % 2 == 0 ? capture.system : capture.microphone;
    late.isHeld = minute % 10 == 0;
    capture.run(0.4);
    late.isHeld = false;
    ASSERT_LE(largestOf(capture, first, 59.6).distance, 0.003) << "minute " << minute;
    // What waits is a part of a second, however long the recording.
    const double length = capture.now() - 1000;
    ASSERT_NEAR(capture.recordedSeconds(), length * (1 - 300e-6), 0.3 + 20e-6 * length);
  }
  EXPECT_EQ(capture.framesLost(CaptureRole::system), 0);
  EXPECT_EQ(capture.framesLost(CaptureRole::microphone), 0);
}

}  // namespace
}  // namespace quenlor::test
