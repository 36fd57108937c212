#pragma once

#include "platform/common/AlignedCapture.h"
#include "platform/pulse/CaptureTrack.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace quenlor::platform::pulse {

/// The rate in which both sources are handed over.
inline constexpr double recordedRate = 48'000;

/// The two sources of one recording, which start together, are handed over in step, and end
/// together.
class PulseCaptureGroup {
 public:
  using Clock = AlignedCapture::Clock;

  /// Frames of the source at recordedRate, of one or two channels; lent for the call. Runs with the
  /// connection's lock held.
  using Receiver = CaptureLane::Receiver;

  explicit PulseCaptureGroup(PulseConnection& groupConnection) : connection(groupConnection) {}

  /// Connects to a source, which rests until start(). Throws PlatformError.
  void add(CaptureRole role, const CaptureForm& form, const std::string& sourceName,
           Receiver receiver) EXCLUDES(connection);

  /// Once this has returned, the role's source hands over no more. Never waits for the server.
  void remove(CaptureRole role) EXCLUDES(connection);

  /// Lets all sources flow: the recording begins. Throws PlatformError where the server does not
  /// agree.
  void start() EXCLUDES(connection);

  /// The recording ends now: hands over all that sounded until then, for which it waits a moment.
  /// Does nothing where none was started, or it has ended.
  void finish() EXCLUDES(connection);

  /// How much sound was handed over. May be called from any thread.
  std::chrono::duration<double> handedOver() const { return soundHandedOver; }

  // These are called with the connection's lock held.

  /// To be called after each serving of the connection. Returns whether the next one should not
  /// wait for the next tick.
  bool served();

  /// Whom to call back when a source's stream has ended.
  void setStreamEnded(std::function<void()> callback);

  /// Takes the role, if it was added, to another source, or to none where the name is empty. Does
  /// nothing where it is there already. The text is what the trace calls the source, or why there
  /// is none.
  void follow(CaptureRole role, const std::string& sourceName, const std::string& text);

 private:
  struct Member {
    const char* name;
    std::optional<CaptureTrack> track{};
    /// What the trace says of it: that it is interrupted, or the source that it comes from.
    bool isReportedInterrupted = false;
    std::string reportedSource{};
    /// The source that was chosen last, and its name for people.
    std::string chosenSource{};
    std::string chosenDescription{};
    /// The source that comes, and since when.
    std::string heardSource{};
    Clock::time_point heardSince{};
  };

  Member& memberOf(CaptureRole role) REQUIRES(connection) {
    return members[static_cast<std::size_t>(role)];
  }
  void streamHasEnded(CaptureRole role, const std::string& reason) REQUIRES(connection);
  void report(CaptureRole role, Clock::time_point now) REQUIRES(connection);
  void reportInterruption(Member& member, const std::string& reason) REQUIRES(connection);
  void reportLoss(CaptureRole role) REQUIRES(connection);

  PulseConnection& connection;
  AlignedCapture capture GUARDED_BY(connection){recordedRate};
  std::array<Member, 2> members GUARDED_BY(connection){Member{.name = "System audio"},
                                                       Member{.name = "The microphone"}};
  std::function<void()> streamEnded GUARDED_BY(connection);
  bool isRunning GUARDED_BY(connection) = false;
  std::atomic<std::chrono::duration<double>> soundHandedOver{};
};

}  // namespace quenlor::platform::pulse
