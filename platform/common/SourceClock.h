#pragma once

#include <chrono>
#include <limits>

namespace quenlor::platform {

/// Says when each frame of a source sounded, by the machine's steady clock.
///
/// It learns from observations: by this time, so many frames had sounded. An observation may be
/// late, by a period of the server or on a busy machine, but never early, so the earliest of each
/// second counts. These drive a delay-locked loop of second order (F. Adriaensen, "Using a DLL to
/// filter time", Linux Audio Conference 2005). Its gains narrow like those of a least-squares line
/// through all seconds so far (the expanding-memory filter in E. Brookner, "Tracking and Kalman
/// Filtering Made Easy", 1998), down to a memory of two minutes.
///
/// Used by one thread at a time.
class SourceClock {
 public:
  using Clock = std::chrono::steady_clock;

  explicit SourceClock(double framesPerSecond) : nominalRate(framesPerSecond) {}

  /// Takes an observation. Returns false where it contradicts those before: frames were lost, or
  /// came twice. The caller then has to restart().
  [[nodiscard]] bool observe(Clock::time_point time, double frames);

  /// Forgets when frames sounded, since some may be missing from now on, but not their rate.
  void restart();

  bool wasObserved() const { return isObserved; }

  /// Whether the observations place a frame to a few milliseconds.
  bool isSettled() const { return isObserved && latest - settlingSince >= settlingTime; }

  /// By how much observations are late, compared with the earliest of their second, in seconds.
  double scatter() const { return latestScatter; }

  /// When a frame sounded or will sound. Asked only of a clock that was observed.
  Clock::time_point timeOf(double frame) const;

  /// Which frame sounds at that time. Asked only of a clock that was observed.
  double frameAt(Clock::time_point time) const;

  /// Frames in a second of the machine's clock.
  double rate() const { return nominalRate / (1 + skew); }

 private:
  static constexpr double settlingTime = 0.2;

  double secondsAt(double frame) const;
  void beginSecond();
  bool endSecond();

  // All times are in seconds of the steady clock.
  double nominalRate;
  // By how much longer than nominal a frame takes, as a fraction.
  double skew = 0;
  // One frame, and when it sounded.
  double referenceFrame = 0;
  double referenceTime = 0;

  bool isObserved = false;
  double latest = 0;
  double settlingSince = 0;

  // The earliest observation of the second under way, and by how much it is later than expected.
  double secondBegan = 0;
  double earliestFrame = 0;
  double earliestLateness = std::numeric_limits<double>::infinity();
  double lastCorrection = 0;
  double latenessOfAll = 0;
  double latestScatter = 0;
  int observations = 0;
  // How many seconds the loop averages over; 0 before the first has ended.
  int weight = 0;
};

}  // namespace quenlor::platform
