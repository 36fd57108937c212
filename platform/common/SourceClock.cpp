#include "platform/common/SourceClock.h"

#include <algorithm>
#include <cmath>

namespace quenlor::platform {
namespace {

using Clock = SourceClock::Clock;

// More than this is no error of the observations, but of the frames.
constexpr double tolerance = 0.02;

constexpr double observedTime = 1;
constexpr int leastObservations = 8;
constexpr int mostWeight = 120;

// How many seconds the loop averages over at first: the more, the wider the observations scatter.
constexpr double leastFirstWeight = 3;
constexpr double mostFirstWeight = 25;
constexpr double weightOfScatter = 4000;

// No device's clock is further off.
constexpr double mostSkew = 0.002;

// A larger error is one of the phase, as after a start on a busy machine, and says little of the
// rate.
constexpr double mostRateError = 0.002;

double toSeconds(Clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

}  // namespace

bool SourceClock::observe(Clock::time_point time, double frames) {
  const bool wasSettled = isSettled();
  latest = toSeconds(time);
  if (!isObserved) {
    isObserved = true;
    settlingSince = secondBegan = lastCorrection = referenceTime = latest;
    referenceFrame = frames;
    return true;
  }
  const double lateness = latest - secondsAt(frames);
  if (!wasSettled) {
    referenceTime += std::min(lateness, 0.0);
    secondBegan = lastCorrection = latest;
    return true;
  }
  if (lateness < -tolerance) return false;
  latenessOfAll += lateness;
  ++observations;
  if (lateness < earliestLateness) {
    earliestLateness = lateness;
    earliestFrame = frames;
  }
  const bool isEnough = latest - secondBegan >= observedTime && observations >= leastObservations;
  return !isEnough || endSecond();
}

/// The gains of an expanding memory of first degree: the phase is corrected by
/// 2 (2n + 1) / ((n + 1) (n + 2)) of the error, the rate by 6 / ((n + 1) (n + 2)) of it.
bool SourceClock::endSecond() {
  const double error = earliestLateness;
  latestScatter = latenessOfAll / observations - error;
  beginSecond();
  if (error > tolerance) return false;
  if (weight == 0)
    weight = static_cast<int>(
        std::min(leastFirstWeight + weightOfScatter * latestScatter, mostFirstWeight));
  const double n = weight;
  const double scale = 2 / ((n + 1) * (n + 2));
  referenceTime = secondsAt(earliestFrame) + scale * (2 * n + 1) * error;
  referenceFrame = earliestFrame;
  const double rateError = std::clamp(error, -mostRateError, mostRateError);
  skew = std::clamp(skew + scale * 3 * rateError / (latest - lastCorrection), -mostSkew, mostSkew);
  lastCorrection = latest;
  weight = std::min(weight + 1, mostWeight);
  return true;
}

void SourceClock::beginSecond() {
  secondBegan = latest;
  earliestLateness = std::numeric_limits<double>::infinity();
  latenessOfAll = 0;
  observations = 0;
}

void SourceClock::restart() {
  isObserved = false;
  beginSecond();
  weight = 0;
}

double SourceClock::secondsAt(double frame) const {
  return referenceTime + (frame - referenceFrame) * (1 + skew) / nominalRate;
}

Clock::time_point SourceClock::timeOf(double frame) const {
  return Clock::time_point(
      std::chrono::round<Clock::duration>(std::chrono::duration<double>(secondsAt(frame))));
}

double SourceClock::frameAt(Clock::time_point time) const {
  return referenceFrame + (toSeconds(time) - referenceTime) * rate();
}

}  // namespace quenlor::platform
