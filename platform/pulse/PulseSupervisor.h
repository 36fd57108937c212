#pragma once

#include "platform/pulse/DefaultDevices.h"
#include "platform/pulse/LoopTimer.h"
#include "platform/pulse/PulseCaptureGroup.h"

#include <chrono>
#include <optional>

namespace quenlor::platform::pulse {

/// Keeps a recording going that has started: takes its tracks to whatever devices are the default,
/// and reaches for the server again when that has gone. Never waits, and makes one attempt at a
/// time, in intervals.
class PulseSupervisor {
 public:
  PulseSupervisor(PulseConnection& supervisedConnection, PulseCaptureGroup& supervisedGroup)
      : connection(supervisedConnection), group(supervisedGroup) {}

  void start() EXCLUDES(connection);

  /// Once this has returned, nothing is followed or attempted any more. Never waits for the server.
  void stop() EXCLUDES(connection);

 private:
  void connectionChanged() REQUIRES(connection);
  void streamEnded() REQUIRES(connection);
  void planAttempt() REQUIRES(connection);
  void attempt() REQUIRES(connection);
  void follow(const DefaultDevices::Answer& answer) REQUIRES(connection);

  PulseConnection& connection;
  PulseCaptureGroup& group;
  // These two exist between start() and stop().
  std::optional<LoopTimer> timer GUARDED_BY(connection);
  std::optional<DefaultDevices> devices GUARDED_BY(connection);
  int failures GUARDED_BY(connection) = 0;
  std::chrono::steady_clock::time_point lastEnd GUARDED_BY(connection);
};

}  // namespace quenlor::platform::pulse
