#include "platform/common/AlignedCapture.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace quenlor::platform {
namespace {

using namespace std::chrono_literals;

// The silence for a program that was stopped for hours must not fill the memory.
constexpr auto longestPause = 60s;

// What a silent source still sends is lost if it comes later than this.
constexpr auto mostLatency = 500ms;

}  // namespace

CaptureLane& AlignedCapture::add(CaptureRole role, double rate, std::uint32_t channels,
                                 CaptureLane::Receiver receiver) {
  remove(role);
  const CaptureLane::Form form{rate, channels, role == CaptureRole::system};
  return lane(role).emplace(timeline, form, std::move(receiver));
}

void AlignedCapture::begin(Clock::time_point time) {
  timeline.begin(time);
  lastAdvance = time;
  end.reset();
  delivered = 0;
}

/// Leaves out what goes beyond the longest pause.
void AlignedCapture::shortenPause(Clock::time_point now) {
  const double position = timeline.positionAt(lastAdvance + longestPause);
  for (auto& each : lanes)
    if (each) each->interrupt();
  timeline.release(now, position);
}

void AlignedCapture::advance(Clock::time_point now) {
  if (now - lastAdvance > longestPause) shortenPause(now);
  lastAdvance = now;
  const bool isCatchingUp = std::ranges::any_of(
      lanes, [now](const auto& each) { return each && each->isCatchingUp(now); });
  auto shared = end.value_or(std::numeric_limits<std::int64_t>::max());
  for (auto& each : lanes) {
    if (!each) continue;
    each->advance(now, isCatchingUp);
    if (!each->hasRun())
      each->fillUntil(static_cast<std::int64_t>(timeline.positionAt(now - mostLatency)));
    shared = std::min(shared, each->end());
  }
  for (auto& each : lanes) {
    if (!each) continue;
    each->deliverUntil(shared);
    delivered = std::max(delivered, shared);
  }
}

void AlignedCapture::endAt(Clock::time_point time) {
  end = std::llround(timeline.positionAt(time));
}

bool AlignedCapture::isComplete() const {
  return std::ranges::all_of(lanes,
                             [this](const auto& each) { return !each || each->hasAllUntil(*end); });
}

bool AlignedCapture::isSettling() const {
  return std::ranges::any_of(lanes, [](const auto& each) { return each && each->isSettling(); });
}

void AlignedCapture::finish() {
  for (auto& each : lanes)
    if (each) each->finishAt(*end);
}

}  // namespace quenlor::platform
