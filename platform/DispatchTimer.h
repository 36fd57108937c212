#pragma once

#include <chrono>
#include <functional>

namespace quenlor::platform {

/// A repeating timer whose handler runs as work of the queue it was made for.
///
/// All functions may be called from any thread. Neither setEventHandler() nor cancel() waits for a
/// handler that is running or about to run: what follows on the queue comes after it. Destroying
/// the timer cancels it.
class DispatchTimer {
 public:
  using Handler = std::function<void()>;

  virtual ~DispatchTimer() = default;

  /// Sets the grid: the first tick delay from now, then one every interval. The grid is anchored to
  /// this call; ticks missed while the queue was busy coalesce into one and the grid stays. leeway
  /// is how late a tick may be to save power.
  virtual void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                        std::chrono::nanoseconds leeway) = 0;

  /// With an empty handler, ticks do nothing. Setting an empty handler cannot fail.
  virtual void setEventHandler(Handler handler) = 0;

  /// Starts ticking; a new timer is suspended.
  virtual void resume() = 0;

  virtual void cancel() = 0;
};

}  // namespace quenlor::platform
