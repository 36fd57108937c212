#pragma once

#include "platform/pulse/CaptureTrack.h"
#include "platform/pulse/LoopTimer.h"

#include <array>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace quenlor::platform::pulse {

/// Which of a recording's two sources a track carries, in the order of their first deliveries.
enum class CaptureRole { system, microphone };

/// The tracks of one recording, which start together and hand over in step.
///
/// The mixer pairs what both deliver by order alone, and pads whichever has nothing at a tick. So
/// all of them are held back until each has a reserve, and then hand over their first bursts at
/// once: the sources keep their distance, and the reserve bridges late deliveries ever after.
///
/// They also hand over equal lengths from then on. While nothing comes the mixer uses up what it
/// has; where one had less, it would pad that one, and nobody would know of it when the pause is
/// filled.
///
/// Where a source is known to be interrupted, silence stands in for it at once, in step with the
/// other. Where its samples just stay away, the other waits for them: the mixer then pauses, and
/// little is padded. Only when patience ends does it go on with silence. Either way samples that
/// come again find their place.
class PulseCaptureGroup {
 public:
  explicit PulseCaptureGroup(PulseConnection& groupConnection) : connection(groupConnection) {}

  /// Adds a track at rest, which must be removed before it is destroyed.
  void add(CaptureRole role, CaptureTrack& track) EXCLUDES(connection);

  /// Removes the role's track, if there is one. Once this has returned, it delivers no more.
  void remove(CaptureRole role) EXCLUDES(connection);

  /// Lets all tracks flow. Throws PlatformError where the server does not agree.
  void start() EXCLUDES(connection);

  // These two are called with the connection's lock held, and assert it.

  /// Whom to call back when a track's stream has ended.
  void setStreamEnded(std::function<void()> callback);

  /// Takes the role's track, if there is one, to another source, or to none where the name is
  /// empty. Does nothing where the track is there already. The reason says why there is none.
  void follow(CaptureRole role, const std::string& sourceName, const std::string& reason);

 private:
  using Clock = CaptureTimeline::Clock;

  struct Member {
    const char* name = nullptr;
    CaptureTrack* track = nullptr;
    Clock::time_point lastHeard{};
    /// What the trace says of it: that it is interrupted, or the source that it comes from.
    bool isToldInterrupted = false;
    std::string toldSource{};
  };

  void samplesCame(Member& member) REQUIRES(connection);
  void tellSource(Member& member) REQUIRES(connection);
  void tellInterruption(Member& member, const std::string& reason) REQUIRES(connection);
  bool mayRelease() const REQUIRES(connection);
  std::chrono::microseconds reserve() const REQUIRES(connection);
  std::chrono::microseconds longestWaiting() const REQUIRES(connection);
  void release() REQUIRES(connection);
  bool isQuiet(const Member& member) const REQUIRES(connection);
  bool areAllQuiet() const REQUIRES(connection);
  bool isSilent(const Member& member) const REQUIRES(connection);
  bool isAnySilent() const REQUIRES(connection);
  bool isComplete() const REQUIRES(connection);
  void interrupted() REQUIRES(connection);
  std::chrono::microseconds sharedWaiting() const REQUIRES(connection);
  void deliver() REQUIRES(connection);
  void deliverAll() REQUIRES(connection);
  void fillSilences() REQUIRES(connection);
  void samplesStayedAway() REQUIRES(connection);
  void hearAll() REQUIRES(connection);

  PulseConnection& connection;
  std::array<Member, 2> members GUARDED_BY(connection);
  std::function<void()> streamEnded GUARDED_BY(connection);
  Clock::time_point startedAt GUARDED_BY(connection);
  bool isReleased GUARDED_BY(connection) = false;
  // Expires when nothing was delivered for too long; exists from the start on, while there are
  // members.
  std::optional<LoopTimer> watch GUARDED_BY(connection);
};

}  // namespace quenlor::platform::pulse
