#pragma once

#include "platform/common/SourceClock.h"

namespace quenlor::platform {

/// The time of a recording: positions in frames, counted from its beginning.
///
/// It runs by the clock of the source that leads, so that this source is recorded as it is, and by
/// the machine's clock while there is none.
class RecordingTimeline {
 public:
  using Clock = SourceClock::Clock;

  explicit RecordingTimeline(double framesPerSecond) : recordedRate(framesPerSecond) {}

  /// Position 0 is at that time.
  void begin(Clock::time_point time) { release(time, 0); }

  /// From now on that clock leads, whose frame lies at that position. It outlives its lead.
  void follow(const SourceClock& clock, double frame, double position, double framesPerSecond);

  /// No source leads any more from that time on, which is at that position.
  void release(Clock::time_point time, double position);

  double positionAt(Clock::time_point time) const;

  /// Positions in a second of the machine's clock.
  double rate() const;

  double nominalRate() const { return recordedRate; }

 private:
  const double recordedRate;
  const SourceClock* leader = nullptr;
  double leadersRate = 0;
  double leadersFrame = 0;
  Clock::time_point since;
  double positionThen = 0;
};

}  // namespace quenlor::platform
