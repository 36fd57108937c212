#pragma once

#include "platform/pulse/PulseCaptureStream.h"

#include <array>
#include <chrono>

namespace quenlor::platform::pulse {

/// Which of a recording's two sources a stream carries, in the order of their first deliveries.
enum class CaptureRole { system, microphone };

/// The streams of one recording, which start together.
///
/// The mixer pairs what both deliver by order alone, and pads whichever has nothing at a tick. So
/// all of them are held back until each has a reserve, and then hand over their first bursts at
/// once: the sources keep their distance, and the reserve bridges late deliveries ever after.
/// A source that is too late to be waited for gets silence in front, as deep as the other's
/// reserve.
class PulseCaptureGroup {
 public:
  explicit PulseCaptureGroup(PulseConnection& groupConnection) : connection(groupConnection) {}

  /// Adds a stream at rest, which must be removed before it is destroyed.
  void add(CaptureRole role, PulseCaptureStream& stream) EXCLUDES(connection);

  /// Removes the role's stream, if there is one. Once this has returned, it delivers no more.
  void remove(CaptureRole role) EXCLUDES(connection);

  /// Lets all streams flow. Throws PlatformError where the server does not agree.
  void start() EXCLUDES(connection);

 private:
  using Clock = std::chrono::steady_clock;

  struct Member {
    PulseCaptureStream* stream = nullptr;
    bool isDelivering = false;
  };

  void samplesCame(Member& member) REQUIRES(connection);
  bool mayRelease() const REQUIRES(connection);
  std::chrono::microseconds reserve() const REQUIRES(connection);
  void release() REQUIRES(connection);

  PulseConnection& connection;
  std::array<Member, 2> members GUARDED_BY(connection);
  Clock::time_point startedAt GUARDED_BY(connection);
  // How much a source had waiting when it was released.
  std::chrono::microseconds depth GUARDED_BY(connection){};
};

}  // namespace quenlor::platform::pulse
