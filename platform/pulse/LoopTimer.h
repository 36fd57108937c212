#pragma once

#include "platform/pulse/PulseConnection.h"

#include <chrono>
#include <functional>
#include <pulse/mainloop-api.h>

namespace quenlor::platform::pulse {

/// Calls back once on the connection's thread, when a time has passed since the last set().
///
/// Setting it over and over costs one system call each and never wakes the thread, so it can watch
/// over something that recurs; libpulse's own time events wake their loop whenever they are set.
///
/// Everything is called with the connection's lock held. A timer ends before its connection.
class LoopTimer {
 public:
  /// Throws PlatformError where the system has no timer left.
  LoopTimer(PulseConnection& connection, std::function<void()> timerHandler);
  ~LoopTimer();
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  /// Replaces any time set before.
  void set(std::chrono::nanoseconds delay);
  void stop();

 private:
  static void expired(pa_mainloop_api* api, pa_io_event* event, int descriptor,
                      pa_io_event_flags_t flags, void* timer);

  const std::function<void()> handler;
  pa_mainloop_api* const api;
  const int descriptor;
  pa_io_event* event = nullptr;
};

}  // namespace quenlor::platform::pulse
