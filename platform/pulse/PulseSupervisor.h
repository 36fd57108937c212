#pragma once

#include "platform/pulse/DefaultDevices.h"
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

  /// To be called after each serving of the connection, with its lock held.
  void served();

 private:
  using Clock = std::chrono::steady_clock;

  void reachForServer() REQUIRES(connection);
  void follow(const DefaultDevices::Answer& answer) REQUIRES(connection);

  PulseConnection& connection;
  PulseCaptureGroup& group;
  // Exists between start() and stop().
  std::optional<DefaultDevices> devices GUARDED_BY(connection);
  bool isWatching GUARDED_BY(connection) = false;
  // To reach the server again.
  int attempts GUARDED_BY(connection) = 0;
  Clock::time_point attemptedAt GUARDED_BY(connection);
};

}  // namespace quenlor::platform::pulse
