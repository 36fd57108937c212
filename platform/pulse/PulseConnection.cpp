#include "platform/pulse/PulseConnection.h"

#include <algorithm>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/proplist.h>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

constexpr char applicationName[] = "Quenlor Helper";
constexpr char applicationID[] = "com.quenlor.helper.audio";

std::string errorOf(pa_context* context) {
  return std::string(pa_strerror(pa_context_errno(context))) + ".";
}

}  // namespace

PulseConnection::PulseConnection(const TraceSink& traceSink)
    : sink(traceSink), mainloop(pa_mainloop_new()) {
  if (mainloop == nullptr) throw PlatformError("The sound server's client could not be set up.");
  try {
    open();
  } catch (const PlatformError& error) {
    close();
    throw PlatformError(std::string("The sound server could not be reached: ") + error.what());
  }
}

PulseConnection::~PulseConnection() {
  close();
}

void PulseConnection::open() {
  ConnectionLock held(*this);
  connect();
  waitUntil([this] {
    assertLocked();
    return isReady();
  });
}

void PulseConnection::connect() {
  serverContext = openContext();
  pa_context_set_state_callback(context(), &PulseConnection::stateChanged, this);
}

Context PulseConnection::openContext() {
  const std::unique_ptr<pa_proplist, decltype(&pa_proplist_free)> properties(pa_proplist_new(),
                                                                             &pa_proplist_free);
  pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_ID, applicationID);
  Context fresh(pa_context_new_with_proplist(loopInterface(), applicationName, properties.get()));
  if (fresh == nullptr) throw PlatformError("Out of memory.");
  if (pa_context_connect(fresh.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
    throw PlatformError(errorOf(fresh.get()));
  return fresh;
}

void PulseConnection::reopen() {
  try {
    connect();
  } catch (const PlatformError&) {
    // Like any failed attempt: the caller tries again.
  }
}

void PulseConnection::close() {
  ConnectionLock held(*this);
  serverQuery.reset();
  serverContext.reset();
}

void PulseConnection::stateChanged(pa_context* context, void* connection) {
  auto& self = *static_cast<PulseConnection*>(connection);
  self.assertLocked();
  if (pa_context_get_state(context) == PA_CONTEXT_READY) self.queryServerInfo();
  if (!self.isGood() && std::exchange(self.isServerKnown, false))
    self.trace("The sound server ended the connection: " + self.lastError());
}

void PulseConnection::queryServerInfo() {
  constexpr auto take = [](pa_context*, const pa_server_info* info, void* connection) {
    auto& self = *static_cast<PulseConnection*>(connection);
    self.assertLocked();
    const char* const name = info != nullptr ? info->server_name : nullptr;
    self.isPulseAudio = name != nullptr && std::string_view(name) == "pulseaudio";
    self.isServerKnown = true;
  };
  serverQuery.reset(pa_context_get_server_info(context(), take, this));
}

void PulseConnection::serve() {
  if (!mutex.tryLock()) return;
  assertLocked();
  runCallbacks();
  finishServing();
  runCallbacks();  // Sends at once what the listener asked for.
  mutex.unlock();
}

void PulseConnection::runCallbacks() {
  while (pa_mainloop_iterate(mainloop.get(), 0, nullptr) > 0) {
  }
}

void PulseConnection::serveUntil(std::chrono::steady_clock::time_point deadline,
                                 const std::function<bool()>& done) {
  auto left = deadline - std::chrono::steady_clock::now();
  for (; left > 0ns && isGood() && !done(); left = deadline - std::chrono::steady_clock::now())
    serveOnce(left);
}

void PulseConnection::waitUntil(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + timeLeft;
  serveUntil(deadline, done);
  timeLeft = std::max<std::chrono::nanoseconds>(deadline - std::chrono::steady_clock::now(), 0ns);
  if (done()) return;
  if (!isGood()) throw PlatformError(lastError());
  throw PlatformError("It did not answer in time.");
}

/// Waits until there is something to run callbacks for, and runs them.
void PulseConnection::serveOnce(std::chrono::nanoseconds longest) {
  const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(longest).count();
  if (pa_mainloop_prepare(mainloop.get(), static_cast<int>(microseconds)) < 0) return;
  if (pa_mainloop_poll(mainloop.get()) >= 0) pa_mainloop_dispatch(mainloop.get());
  finishServing();
}

void PulseConnection::finishServing() {
  if (servedListener) servedListener();
}

void PulseConnection::waitFor(const Operation& operation) {
  if (operation == nullptr) throw PlatformError(lastError());
  waitUntil(
      [&operation] { return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING; });
}

void PulseConnection::reportError(const std::exception& error) noexcept {
  assertLocked();
  if (std::exchange(hasReportedError, true)) return;
  try {
    trace(std::string("Samples could not be taken: ") + error.what());
  } catch (const std::exception&) {
    // Without memory for the line, the recording goes on without it.
  }
}

std::string PulseConnection::lastError() {
  return errorOf(context());
}

}  // namespace quenlor::platform::pulse
