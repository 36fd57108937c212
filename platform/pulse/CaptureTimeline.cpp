#include "platform/pulse/CaptureTimeline.h"

#include <algorithm>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// After an interruption a server may send at once what it had kept, or pause again, so the clock
// rules for a while. Samples may come late, but the next ones make up for that, and none can be
// early: so the earliest tell what lacks or is too much, and after some time of them it is put
// right, at once only where it is far too much.
constexpr auto settlingTime = 1s;
constexpr auto judgingTime = 250ms;
constexpr auto precision = 10ms;
constexpr auto tolerance = 30ms;

// Samples that come later than this are rather lost.
constexpr CaptureTimeline::Duration mostLateness = 60ms;

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
    beginSettling(now);
    standingIn = std::max(standingIn, -owed);  // A stream that takes over may repeat some.
    return correct(owed, length);
  }
  if (caughtUpAt != Clock::time_point()) {
    // What was kept for this program comes bit by bit; what still lacks in the end was lost.
    if (now < caughtUpAt) return {};
    caughtUpAt = {};
    beginSettling(now);
  }
  if (isSettling) return settle(now, length);
  noteLateness(length);
  return {};
}

/// By how much these samples came later than the earliest do: after an interruption that is owed as
/// well. No device's clock is off by as much as the lateness that is forgiven.
void CaptureTimeline::noteLateness(Duration length) {
  constexpr int forgiven = 1000;
  owed = hasBegun ? std::clamp(owed - length / forgiven, Duration::zero(), mostLateness)
                  : Duration::zero();
}

void CaptureTimeline::beginSettling(Clock::time_point now) {
  isSettling = true;
  settledAt = now + settlingTime;
  leastOwed = Duration::max();
}

CaptureTimeline::Duration CaptureTimeline::settle(Clock::time_point now, Duration length) {
  if (leastOwed == Duration::max()) judgedAt = now + judgingTime;
  leastOwed = std::min(leastOwed, owed);
  const bool isCutting = std::exchange(owesACut, false);
  const bool isTooMuch = owed < (isCutting ? Duration::zero() : -tolerance);
  if (isTooMuch && standingIn > Duration::zero()) return correct(owed, length);
  if (now < judgedAt) return {};
  const bool isWrong = std::chrono::abs(leastOwed) > precision;
  const Duration correction = correct(isWrong ? leastOwed : Duration::zero(), length);
  isSettling = now < settledAt;
  if (!isSettling) standingIn = {};
  return correction;
}

/// Also begins to judge anew.
CaptureTimeline::Duration CaptureTimeline::correct(Duration due, Duration length) {
  const Duration correction = std::max({due, -length, -standingIn});
  owed -= correction;
  standingIn += correction;
  owesACut = correction > due;
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
  const bool isShort = isInterrupted || caughtUpAt != Clock::time_point();
  return isShort ? pay(dueAt(now)) : Duration::zero();
}

CaptureTimeline::Duration CaptureTimeline::dueAt(Clock::time_point time) const {
  return std::min<Duration>(owed + std::chrono::duration_cast<Duration>(time - since), longestDebt);
}

CaptureTimeline::Duration CaptureTimeline::pay(Duration due) {
  if (due <= Duration::zero()) return {};
  owed -= due;
  standingIn += due;
  return due;
}

}  // namespace quenlor::platform::pulse
