#pragma once

#include "platform/pulse/PulseConnection.h"

#include <chrono>
#include <functional>
#include <pulse/mainloop-api.h>

namespace quenlor::platform::pulse {

/// Calls back once, when a time has passed since the last set() and the connection is served.
///
/// Everything is called with the connection's lock held. A timer ends before its connection.
class LoopTimer {
 public:
  /// Throws PlatformError where memory has run out.
  LoopTimer(PulseConnection& timerConnection, std::function<void()> timerHandler);
  ~LoopTimer();
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  /// Replaces any time set before.
  void set(std::chrono::microseconds delay);
  void stop();

 private:
  static void expired(pa_mainloop_api* api, pa_time_event* event, const timeval* time, void* timer);

  PulseConnection& connection;
  const std::function<void()> handler;
  pa_time_event* const event;
};

}  // namespace quenlor::platform::pulse
