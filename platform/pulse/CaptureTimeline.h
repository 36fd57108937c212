#pragma once

#include <chrono>

namespace quenlor::platform::pulse {

/// Keeps a source's place in the recording when its samples stay away for a while: says how much
/// silence stands for lost time, and how much of what comes late is too much.
///
/// While samples come, they are the clock: a device's clock departs from the system's by hundreds
/// of millionths, so times are only ever compared with those of the arrivals just before an
/// interruption.
class CaptureTimeline {
 public:
  using Clock = std::chrono::steady_clock;
  using Duration = std::chrono::microseconds;

  /// From now on arrivals are judged; until then they are only noted.
  void begin() { hasBegun = true; }

  /// As begin(), for a source of which nothing has come: it owes this much at that time.
  void beginLate(Clock::time_point time, Duration owedThen);

  /// Samples may have been lost since the last arrival: the next ones are placed by the clock.
  void interrupt() { isInterrupted = hasBegun; }
  bool wasInterrupted() const { return isInterrupted; }

  /// Samples of this length have come. Gives how much silence has to go in front of them; what is
  /// negative has to be cut off their front, and is never more than they are.
  Duration place(Clock::time_point now, Duration length);

  /// The silence that is due by now, in whole pieces, which is to be delivered.
  Duration fill(Clock::time_point now);

  /// The silence that is due at the recording's end.
  Duration finish(Clock::time_point now);

 private:
  void noteLateness(Duration length);
  void beginSettling(Clock::time_point now);
  Duration settle(Clock::time_point now, Duration length);
  Duration correct(Duration due, Duration length);
  Duration dueAt(Clock::time_point time) const;
  Duration pay(Duration due);

  // Since when time counts as owed, and how much was owed then; negative where too much was given.
  Clock::time_point since;
  Duration owed{};
  bool isSettling = false;
  Clock::time_point settledAt;
  // The least that was owed at any arrival since the last correction, and when that counts.
  Duration leastOwed{};
  Clock::time_point judgedAt;
  // Set while samples of a pause may still come.
  Clock::time_point caughtUpAt;
  bool hasBegun = false;
  bool isInterrupted = false;
  // The silence of this interruption, or what came twice: more than that is never cut off.
  Duration standingIn{};
  // Samples are cut off that are still too many.
  bool owesACut = false;
};

}  // namespace quenlor::platform::pulse
