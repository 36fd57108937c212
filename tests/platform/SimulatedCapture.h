#pragma once

#include "platform/common/AlignedCapture.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace quenlor::test {

/// One observation of a server: how long after the one before, and by how much later than the
/// frames sounded. In seconds.
struct Observation {
  double pause;
  double lateness;
};

/// Observations of one source as they were recorded from a server, replayed in a circle.
std::vector<Observation> recordedObservations(const std::string& name);

/// A device on a crystal of its own, whose sound tells when it sounded: a sine and a cosine of 1 Hz
/// of the machine's time.
struct SimulatedDevice {
  double rate = 0;
  std::vector<Observation> observations;
  /// By which fraction its crystal is fast.
  double drift = 0;
  /// Frames that sounded, less those that were lost.
  double frames = 0;
  /// What sounded is lost, or waits in the server.
  bool loses = false;
  bool isHeld = false;

  std::vector<float> held{};
  double nextObservation = 0;
  std::size_t observation = 0;
};

/// A recording of two such devices on a clock of its own, served every 20 ms.
class SimulatedCapture {
 public:
  /// The recording's rate is that of the devices, which need not be that of real sound: what is
  /// tested are times.
  SimulatedCapture(double recordedRate, SimulatedDevice systemDevice,
                   SimulatedDevice microphoneDevice);

  void run(double seconds);

  /// Nothing is served meanwhile.
  void pause(double seconds) { time += seconds; }

  /// Ends the recording now; nothing is served after that.
  void finish();

  double now() const { return time; }
  double recordedSeconds() const { return static_cast<double>(recorded) / rate; }

  /// By how much later than system audio the microphone lies in the last frame that holds both.
  double distance() const { return latestDistance; }
  double correction() { return capture.lane(platform::CaptureRole::microphone)->correction(); }
  std::int64_t framesLost(platform::CaptureRole role) { return capture.lane(role)->framesLost(); }

  SimulatedDevice system, microphone;

 private:
  void serve(SimulatedDevice& device, platform::CaptureRole role, double until);
  void take(platform::CaptureRole role, const platform::PlanarFrames& frames, std::size_t count);

  const double rate;
  platform::AlignedCapture capture;
  double time = 1000;
  std::deque<double> systemPhases;
  double latestDistance = 0;
  std::int64_t recorded = 0;
};

}  // namespace quenlor::test
