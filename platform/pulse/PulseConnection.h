#pragma once

#include "platform/AudioPlatform.h"
#include "platform/ThreadSafety.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <pulse/context.h>
#include <pulse/mainloop.h>
#include <pulse/operation.h>
#include <string>
#include <string_view>
#include <utility>

namespace quenlor::platform::pulse {

/// An operation under way. Destroying it means that its callback is not called any more.
struct OperationCanceller {
  void operator()(pa_operation* operation) const {
    pa_operation_cancel(operation);
    pa_operation_unref(operation);
  }
};
using Operation = std::unique_ptr<pa_operation, OperationCanceller>;

/// A connection as libpulse has it. Destroying it means that its state callback is not called any
/// more.
struct ContextCloser {
  void operator()(pa_context* closing) const {
    pa_context_set_state_callback(closing, nullptr, nullptr);
    pa_context_disconnect(closing);
    pa_context_unref(closing);
  }
};
using Context = std::unique_ptr<pa_context, ContextCloser>;

/// The connection to the sound server.
///
/// It is also the lock under which everything of libpulse is used, and it has no thread of its own:
/// whoever holds it may serve it, that is, have the callbacks run for what has come. The control
/// thread does while it waits for an answer; otherwise serve() is to be called again and again. The
/// callbacks enter the queue of an IO block, so nothing on that queue may wait for the connection;
/// and nobody who holds it waits for another queue, on which a file may be written.
///
/// All functions are called from the control thread, or in callbacks where they say so.
class CAPABILITY("connection") PulseConnection {
 public:
  /// How long the server may take for all its answers together, from connecting until capture runs.
  /// Below the five seconds within which a start has to succeed or fail.
  static constexpr std::chrono::milliseconds answerTime{4000};

  /// Reaches for the server that the user's settings name, and starts none. Throws PlatformError.
  explicit PulseConnection(const TraceSink& traceSink);
  ~PulseConnection();

  PulseConnection(const PulseConnection&) = delete;
  PulseConnection& operator=(const PulseConnection&) = delete;

  void lock() ACQUIRE() { mutex.lock(); }
  void unlock() RELEASE() { mutex.unlock(); }

  /// Tells the analysis that a callback runs with the lock held.
  void assertLocked() const ASSERT_CAPABILITY(this) {}

  pa_context* context() REQUIRES(this) { return serverContext.get(); }
  bool isGood() REQUIRES(this) { return PA_CONTEXT_IS_GOOD(pa_context_get_state(context())); }
  bool isReady() REQUIRES(this) { return isServerKnown; }

  /// Whether the server leaves a stream where it is if asked to. PulseAudio does, and without that
  /// takes streams along when the default device changes; PipeWire refuses streams that ask. Known
  /// once the connection is ready.
  bool canPinStreams() REQUIRES(this) { return isPulseAudio; }

  pa_mainloop_api* loopInterface() { return pa_mainloop_get_api(mainloop.get()); }

  /// Has the callbacks run for what has come by now, without waiting. Does nothing where another
  /// thread holds the connection. May be called from any thread.
  void serve() EXCLUDES(this);

  /// Whom to call after each serving of the connection, when its callbacks have run. The listener
  /// must not serve the connection.
  void setServedListener(std::function<void()> callback) REQUIRES(this) {
    servedListener = std::move(callback);
  }

  /// Reaches for the same server over one more connection, which is served along with this one.
  /// Does not wait. Throws PlatformError.
  Context openContext() REQUIRES(this);

  /// Gives up what there is of a connection and reaches for the server anew, without waiting.
  /// Whatever was made on the old connection is dead and may be destroyed at any time.
  void reopen() REQUIRES(this);

  /// Why the last call failed, as one sentence.
  std::string lastError() REQUIRES(this);

  /// Serves the connection until done() is true. Throws PlatformError when the connection ends or
  /// the answer time is used up.
  void waitUntil(const std::function<bool()>& done) REQUIRES(this);

  /// Serves the connection until done() is true, the connection has ended or the deadline has come.
  void serveUntil(std::chrono::steady_clock::time_point deadline, const std::function<bool()>& done)
      REQUIRES(this);

  /// Waits for the answer to an operation. Throws as waitUntil(), and where there is no operation.
  void waitFor(const Operation& operation) REQUIRES(this);

  /// Gives the server its whole answer time again.
  void renewAnswerTime() { timeLeft = answerTime; }

  /// Runs work on what has come, for callbacks, where no exception may pass. The first that comes
  /// is traced.
  template <typename Work>
  void guard(Work work) noexcept {
    try {
      work();
    } catch (const std::exception& error) {
      reportError(error);
    }
  }

  /// May be called from any thread.
  void trace(std::string_view message) const { sink(message); }

 private:
  struct MainloopEnder {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
  };

  void open();
  void connect() REQUIRES(this);
  void close();
  void serveOnce(std::chrono::nanoseconds longest) REQUIRES(this);
  void runCallbacks() REQUIRES(this);
  void finishServing() REQUIRES(this);
  void queryServerInfo() REQUIRES(this);
  void reportError(const std::exception& error) noexcept;
  static void stateChanged(pa_context* context, void* connection);

  const TraceSink sink;
  Mutex mutex;
  std::chrono::nanoseconds timeLeft = answerTime;
  const std::unique_ptr<pa_mainloop, MainloopEnder> mainloop;
  Context serverContext GUARDED_BY(this);
  std::function<void()> servedListener GUARDED_BY(this);
  Operation serverQuery GUARDED_BY(this);
  bool isPulseAudio GUARDED_BY(this) = false;
  bool isServerKnown GUARDED_BY(this) = false;
  bool hasReportedError GUARDED_BY(this) = false;
};

/// Holds a connection's lock for a scope.
class SCOPED_CAPABILITY ConnectionLock {
 public:
  explicit ConnectionLock(PulseConnection& heldConnection) ACQUIRE(heldConnection)
      : connection(heldConnection) {
    connection.lock();
  }
  ~ConnectionLock() RELEASE() { connection.unlock(); }
  ConnectionLock(const ConnectionLock&) = delete;
  ConnectionLock& operator=(const ConnectionLock&) = delete;

 private:
  PulseConnection& connection;
};

}  // namespace quenlor::platform::pulse
