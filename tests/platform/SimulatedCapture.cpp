#include "tests/platform/SimulatedCapture.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <numbers>
#include <utility>

namespace quenlor::test {

using platform::CaptureRole;
using platform::PlanarFrames;
using Clock = platform::AlignedCapture::Clock;

namespace {

constexpr double servingInterval = 0.02;

// How often a host observes a source whose clock settles.
constexpr double settlingInterval = 0.004;
constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

Clock::time_point timePoint(double seconds) {
  return Clock::time_point(
      std::chrono::round<Clock::duration>(std::chrono::duration<double>(seconds)));
}

/// The part of a second at which a frame sounded, or nothing for silence.
double phaseOf(float sine, float cosine) {
  if (std::hypot(sine, cosine) < 0.5F) return nothing;
  return std::atan2(sine, cosine) / (2 * std::numbers::pi);
}

}  // namespace

std::vector<Observation> recordedObservations(const std::string& name) {
  std::ifstream file(std::string(QUENLOR_OBSERVATIONS) + "/" + name + ".csv");
  std::vector<Observation> observations;
  double pause = 0, lateness = 0;
  for (char comma = 0; file >> pause >> comma >> lateness;)
    observations.push_back({pause / 1000, lateness / 1000});
  return observations;
}

SimulatedCapture::SimulatedCapture(double recordedRate, SimulatedDevice systemDevice,
                                   SimulatedDevice microphoneDevice)
    : system(std::move(systemDevice)),
      microphone(std::move(microphoneDevice)),
      rate(recordedRate),
      capture(recordedRate) {
  const auto add = [this](CaptureRole role, SimulatedDevice& device) {
    capture.add(role, device.rate, 2, [this, role](const PlanarFrames& frames, std::size_t count) {
      take(role, frames, count);
    });
    device.nextObservation = time;
  };
  add(CaptureRole::system, system);
  add(CaptureRole::microphone, microphone);
  capture.begin(timePoint(time));
}

void SimulatedCapture::run(double seconds) {
  for (const double end = time + seconds - servingInterval / 2; time < end;) {
    const double until = time + servingInterval;
    serve(system, CaptureRole::system, until);
    serve(microphone, CaptureRole::microphone, until);
    time = until;
    capture.advance(timePoint(time));
  }
}

void SimulatedCapture::finish() {
  capture.endAt(timePoint(time));
  capture.finish();
}

void SimulatedCapture::serve(SimulatedDevice& device, CaptureRole role, double until) {
  platform::CaptureLane& lane = *capture.lane(role);
  const double framesPerSecond = device.rate * (1 + device.drift);
  if (!device.loses) {
    const double first = device.frames;
    device.frames += (until - time) * framesPerSecond;
    for (double frame = std::ceil(first); frame < device.frames; ++frame) {
      const double angle =
          2 * std::numbers::pi * std::fmod(time + (frame - first) / framesPerSecond, 1);
      device.held.push_back(static_cast<float>(std::sin(angle)));
      device.held.push_back(static_cast<float>(std::cos(angle)));
    }
  }
  if (device.isHeld || device.loses) return;
  lane.append(std::exchange(device.held, {}));
  for (; device.nextObservation < until; ++device.observation) {
    const auto& [pause, recordedLateness] =
        device.observations[device.observation % device.observations.size()];
    const double lateness =
        lane.isSettling() ? std::fmod(recordedLateness, settlingInterval) : recordedLateness;
    const double sounded =
        device.frames - (until - device.nextObservation + lateness) * framesPerSecond;
    // A pause is not made up for.
    if (device.nextObservation >= time)
      lane.observe(timePoint(device.nextObservation), sounded - std::ceil(device.frames));
    device.nextObservation = std::max(device.nextObservation, time) + pause;
  }
}

void SimulatedCapture::take(CaptureRole role, const PlanarFrames& frames, std::size_t count) {
  const auto [sine, cosine] = frames.data();
  for (std::size_t i = 0; i < count; ++i) {
    const double phase = phaseOf(sine[i], cosine[i]);
    if (role == CaptureRole::system) {
      systemPhases.push_back(phase);
      continue;
    }
    const double distance = systemPhases.front() - phase;
    systemPhases.pop_front();
    ++recorded;
    if (!std::isnan(distance)) latestDistance = distance - std::round(distance);
  }
}

}  // namespace quenlor::test
