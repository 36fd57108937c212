#include "platform/pulse/CaptureTimeline.h"

#include <algorithm>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// After an interruption a server may send at once what it had kept, or pause again, so the clock
// rules for a while. Samples may come late, but the next ones make up for that: so they lack only
// what lacks whenever they come for some time, and none can be early.
constexpr auto settlingTime = 1s;
constexpr auto judgingTime = 250ms;
constexpr auto tolerance = 30ms;

// After a pause of this program's own, a server hands over what it kept, ten seconds at most, at
// several times its usual pace.
constexpr auto longestPause = 1s;
constexpr auto catchingUpTime = 10s;

// Silence is handed over as it becomes due, so only a program that was stopped itself owes more
// than a moment of it. After hours of that it must not fill the memory.
constexpr auto longestDebt = 60s;

// A whole number of frames at the usual rates, so that no roundings add up.
constexpr CaptureTimeline::Duration silencePiece = 20ms;

}  // namespace

void CaptureTimeline::beginLate(Clock::time_point time, Duration owedThen) {
  hasBegun = isInterrupted = true;
  since = time;
  owed = owedThen;
}

CaptureTimeline::Duration CaptureTimeline::place(Clock::time_point now, Duration length) {
  if (hasBegun && !isInterrupted && now - since > longestPause) caughtUpAt = now + catchingUpTime;
  owed = dueAt(now) - length;
  since = now;
  if (std::exchange(isInterrupted, false)) {
    caughtUpAt = {};
    settledAt = now + settlingTime;
    return correct(now, owed, length);
  }
  if (caughtUpAt != Clock::time_point()) return catchUp(now);
  if (now < settledAt) return settle(now, length);
  owed = {};
  return {};
}

/// What was kept for this program while it could not run comes bit by bit; what is still missing in
/// the end was lost.
CaptureTimeline::Duration CaptureTimeline::catchUp(Clock::time_point now) {
  if (now < caughtUpAt) return {};
  caughtUpAt = {};
  const Duration lost = std::exchange(owed, {});
  return lost > tolerance ? lost : Duration::zero();
}

CaptureTimeline::Duration CaptureTimeline::settle(Clock::time_point now, Duration length) {
  leastOwed = std::min(leastOwed, owed);
  const bool isCutting = std::exchange(owesACut, false);
  if (owed < (isCutting ? Duration::zero() : -tolerance)) return correct(now, owed, length);
  if (now < judgedAt) return {};
  return correct(now, leastOwed > tolerance ? leastOwed : Duration::zero(), length);
}

/// Also begins to judge anew.
CaptureTimeline::Duration CaptureTimeline::correct(Clock::time_point now, Duration due,
                                                   Duration length) {
  const Duration correction = std::max(due, -length);
  owed -= correction;
  owesACut = correction > due;
  judgedAt = now + judgingTime;
  leastOwed = Duration::max();
  return correction;
}

CaptureTimeline::Duration CaptureTimeline::fill(Clock::time_point now) {
  interrupt();
  owed = dueAt(now);
  since = now;
  return pay(owed - owed % silencePiece);
}

CaptureTimeline::Duration CaptureTimeline::finish(Clock::time_point now) {
  return isInterrupted ? pay(dueAt(now)) : Duration::zero();
}

CaptureTimeline::Duration CaptureTimeline::dueAt(Clock::time_point time) const {
  return std::min<Duration>(owed + std::chrono::duration_cast<Duration>(time - since), longestDebt);
}

CaptureTimeline::Duration CaptureTimeline::pay(Duration due) {
  if (due <= Duration::zero()) return {};
  owed -= due;
  return due;
}

}  // namespace quenlor::platform::pulse
