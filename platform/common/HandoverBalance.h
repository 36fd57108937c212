#pragma once

#include <algorithm>
#include <chrono>

namespace quenlor::platform {

/// Weighs the sound that was handed over to a mixer against what its ticks have taken, a period
/// each. Used by one thread at a time.
class HandoverBalance {
 public:
  using Seconds = std::chrono::duration<double>;

  /// Counts a tick. Returns whether so much is left after it that another one should follow at
  /// once, which is counted as well.
  bool tick(Seconds period, Seconds handedOver) {
    taken = std::min(taken + period, handedOver);
    if (handedOver - taken <= mostLeft) return false;
    taken += period;
    return true;
  }

 private:
  // More than what the first delivery of a recording brings, and what comes between two others.
  static constexpr Seconds mostLeft{0.4};

  Seconds taken{};
};

}  // namespace quenlor::platform
