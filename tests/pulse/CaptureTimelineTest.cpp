#include "platform/pulse/CaptureTimeline.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto portion = 30ms;

double inMilliseconds(CaptureTimeline::Duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

/// What a source's samples come to that stayed away for three seconds.
class Recorded {
 public:
  Recorded() {
    place(0ms, portion);
    timeline.begin();
    timeline.interrupt();
    for (auto time = 40ms; time <= 3000ms; time += 40ms) silence += timeline.fill(start + time);
  }

  void place(milliseconds time, milliseconds length) {
    const auto correction = timeline.place(start + time, length);
    (correction > 0ms ? silence : cut) += correction;
  }

  CaptureTimeline::Duration silence{};
  CaptureTimeline::Duration cut{};

 private:
  CaptureTimeline timeline;
  const CaptureTimeline::Clock::time_point start = CaptureTimeline::Clock::now();
};

struct Return {
  std::string name;
  /// When the first portions come; after a gap, if there is one, they come regularly.
  std::vector<milliseconds> portions;
  milliseconds silence;
  milliseconds cut;
};

std::vector<milliseconds> times(milliseconds begin, milliseconds end, milliseconds step) {
  std::vector<milliseconds> result;
  for (auto time = begin; time < end; time += step) result.push_back(time);
  return result;
}

TEST(CaptureTimeline, FillsWhatWasLostAndCutsWhatIsTooMuch) {
  const Return returns[] = {
      {"at the usual pace", {3030ms}, 3000ms, 0ms},
      {"with all that was kept at once", std::vector<milliseconds>(100, 3001ms), 3000ms, 3000ms},
      {"with all that was kept, by and by", times(3000ms, 6000ms, portion / 2), 3000ms, 3000ms},
      {"some late, all in the end", {3030ms, 3110ms, 3110ms, 3120ms, 3200ms, 3200ms}, 3000ms, 0ms},
      {"for a moment, and the rest late", {3030ms, 3180ms, 3180ms, 3180ms, 3180ms}, 3000ms, 0ms},
      {"for a moment, and with a gap", times(3030ms, 3120ms, portion), 3300ms, 0ms},
      {"for a while, and with a gap", times(3030ms, 3720ms, portion), 3300ms, 0ms},
  };
  for (const Return& each : returns) {
    SCOPED_TRACE(each.name);
    Recorded recorded;
    for (const milliseconds time : each.portions) recorded.place(time, portion);
    const auto gap = each.silence - 3000ms;
    for (auto time = each.portions.back() + gap + portion; time < 10s; time += portion)
      recorded.place(time, portion);
    EXPECT_NEAR(inMilliseconds(recorded.silence), inMilliseconds(each.silence), 31);
    EXPECT_NEAR(inMilliseconds(recorded.cut), inMilliseconds(-each.cut), 31);
  }
}

}  // namespace
}  // namespace quenlor::platform::pulse
