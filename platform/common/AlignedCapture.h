#pragma once

#include "platform/common/CaptureLane.h"

#include <array>
#include <chrono>
#include <optional>

namespace quenlor::platform {

/// Which of a recording's two sources a lane carries, in the order of their deliveries.
enum class CaptureRole { system, microphone };

/// The two sources of a recording on one timeline, which system audio leads. Both are handed over
/// in step: whoever pairs their frames by order alone pairs what sounded at the same time.
///
/// Used by one thread at a time.
class AlignedCapture {
 public:
  using Clock = CaptureLane::Clock;

  explicit AlignedCapture(double framesPerSecond) : timeline(framesPerSecond) {}

  /// Throws PlatformError where there is no resampler for the form.
  CaptureLane& add(CaptureRole role, double rate, std::uint32_t channels,
                   CaptureLane::Receiver receiver);

  /// What the lane has not handed over is lost.
  void remove(CaptureRole role) { lane(role).reset(); }

  /// The recording begins at that time: what sounded before is not part of it.
  void begin(Clock::time_point time);

  /// To be called once after each time the server was served: hands over what all sources have. A
  /// source that has timed out is not waited for.
  void advance(Clock::time_point now);

  /// Whether a source has come back whose clock has to be learnt, so that the server should be
  /// served as often as possible.
  bool isSettling() const;

  /// The recording ends at that time: nothing is handed over that sounded later.
  void endAt(Clock::time_point time);

  /// Whether all of the recording has come that is to be waited for. endAt() comes first.
  bool isComplete() const;

  /// Hands over the rest of the recording. endAt() comes first.
  void finish();

  /// How many frames of each source were handed over.
  std::int64_t handedOver() const { return delivered; }

  std::optional<CaptureLane>& lane(CaptureRole role) {
    return lanes[static_cast<std::size_t>(role)];
  }

 private:
  void shortenPause(Clock::time_point now);

  RecordingTimeline timeline;
  Clock::time_point lastAdvance;
  std::optional<std::int64_t> end;
  std::int64_t delivered = 0;
  std::array<std::optional<CaptureLane>, 2> lanes;
};

}  // namespace quenlor::platform
