#pragma once

#include <cstdint>
#include <random>

namespace quenlor::test {

/// How many frames a device with a clock of its own hands over in each tick of the mixer's. About
/// once a minute it fails for 40 to 400 ms: what it missed comes afterwards in one burst, or is
/// lost, the latter so seldom that a fast clock still gets ahead.
class DriftingSource {
 public:
  /// partsPerMillion is how much faster than 48 kHz the device's clock runs.
  DriftingSource(std::int64_t partsPerMillion, std::uint32_t seed)
      : framesPerMillionTicks(framesPerTick * (1'000'000 + partsPerMillion)), random(seed) {}

  std::uint32_t nextTick() {
    owedMillionths += framesPerMillionTicks;
    const std::int64_t due = owedMillionths / 1'000'000;
    owedMillionths %= 1'000'000;
    withheld += due;
    if (missedTicks > 0 && --missedTicks > 0) return 0;
    if (losesThem) withheld = due;
    losesThem = false;
    if (random() % ticksPerMinute == 0) {
      missedTicks = 2 + static_cast<int>(random() % 19);
      losesThem = random() % 50 == 0;
    }
    const auto given = static_cast<std::uint32_t>(withheld);
    withheld = 0;
    return given;
  }

  static constexpr std::int64_t framesPerTick = 960;
  static constexpr std::uint32_t ticksPerMinute = 3000;

 private:
  const std::int64_t framesPerMillionTicks;
  std::mt19937 random;
  std::int64_t owedMillionths = 0;
  std::int64_t withheld = 0;
  int missedTicks = 0;
  bool losesThem = false;
};

}  // namespace quenlor::test
