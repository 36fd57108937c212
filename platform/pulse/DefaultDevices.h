#pragma once

#include "platform/pulse/PulseServerInfo.h"

#include <functional>
#include <optional>
#include <utility>

namespace quenlor::platform::pulse {

/// The server's default devices, watched while they change. Asks the server without waiting.
///
/// Everything is called with the connection's lock held.
class DefaultDevices {
 public:
  struct Answer {
    std::optional<SinkInfo> sink;
    std::optional<SourceInfo> source;
  };
  /// Takes each answer. May call look().
  using Listener = std::function<void(const Answer& answer)>;

  DefaultDevices(PulseConnection& devicesConnection, Listener answerListener)
      : connection(devicesConnection), listener(std::move(answerListener)) {}
  ~DefaultDevices();
  DefaultDevices(const DefaultDevices&) = delete;
  DefaultDevices& operator=(const DefaultDevices&) = delete;

  /// Looks now and whenever devices come, go or become the default, for as long as the connection
  /// lasts.
  void watch();

  /// Looks once; where a look is under way already, once more after it.
  void look();

 private:
  void ask();
  void answered();

  PulseConnection& connection;
  const Listener listener;
  Operation subscription;
  Operation sinkQuery;
  Operation sourceQuery;
  Answer answer;
  bool isStale = false;
};

}  // namespace quenlor::platform::pulse
