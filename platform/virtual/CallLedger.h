#pragma once

#include "platform/AudioTypes.h"
#include "platform/ThreadSafety.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenlor::platform::virtualhost {

/// The kinds of objects that a host makes and expects to be released.
enum class ObjectKind {
  tap,
  aggregateDevice,
  ioProc,
  engine,
  engineTap,
  converter,
  queue,
  timer,
  buffer,
};
inline constexpr std::size_t kObjectKindCount = 9;

/// Records all calls to the virtual host, makes chosen ones fail, and counts the objects that are
/// created and destroyed. Thread-safe.
///
/// Names are those of the seam's functions: createProcessTap, getPropertyData(dOut), makeConverter
/// and so on; engine.prepare, engine.start, engine.isRunning and engine.stop for the engine's;
/// installTap(1024) with the buffer size that is asked for, and schedule(delay,interval,leeway) in
/// nanoseconds for a timer.
/// A call that the ledger fails has no effect: a destroyProcessTap that fails leaves the tap alive.
class CallLedger {
 public:
  enum class Repeat { once, forGood };

  /// Fails the call with this number, counted from 1 over all calls that can fail; with forGood,
  /// all later ones too.
  void failCall(std::uint64_t number, Repeat repeat = Repeat::once);

  /// Fails the occurrence-th call of that name, counted from 1; with forGood, all later ones too.
  void failNamed(const std::string& name, std::uint64_t occurrence = 1,
                 Repeat repeat = Repeat::once);

  /// The status of failed hardware calls; 'nope' unless set.
  void setFailureStatus(OSStatus status);

  /// All calls but makeBuffer and convert, in order. Those two come hundreds of times a second and
  /// are only counted.
  std::vector<std::string> calls() const;

  std::uint64_t count(std::string_view name) const;

  /// The number of calls so far that can fail: the last number for a sweep with failCall().
  std::uint64_t failableCalls() const;

  /// Names of the calls that were made to fail, in order.
  std::vector<std::string> failedCalls() const;

  std::uint64_t created(ObjectKind kind) const;
  std::uint64_t destroyed(ObjectKind kind) const;
  std::uint64_t alive(ObjectKind kind) const;

  /// Objects of any kind that are still alive.
  std::uint64_t aliveInAll() const;

  /// Descriptions of incorrect calls, such as destroying an object twice or a tap on a wrong bus.
  std::vector<std::string> misuses() const;

  // The following are called by the virtual host.

  /// A call that cannot fail.
  void record(std::string_view name);

  /// A call that can fail. Returns 0, or the status that the call has to fail with.
  [[nodiscard]] OSStatus attempt(std::string_view name);

  /// Like attempt(), for a call that is counted but not listed.
  [[nodiscard]] OSStatus attemptUnlisted(std::string_view name);

  void noteCreated(ObjectKind kind);
  void noteDestroyed(ObjectKind kind);
  void noteMisuse(std::string text);

 private:
  struct Plan {
    std::uint64_t number;
    Repeat repeat;

    bool hits(std::uint64_t call) const {
      return repeat == Repeat::once ? call == number : call >= number;
    }
  };

  std::uint64_t countCall(std::string_view name) REQUIRES(mutex);
  OSStatus judge(std::string_view name) REQUIRES(mutex);

  mutable Mutex mutex;
  std::vector<std::string> callNames GUARDED_BY(mutex);
  std::map<std::string, std::uint64_t, std::less<>> counts GUARDED_BY(mutex);
  std::uint64_t failable GUARDED_BY(mutex) = 0;
  std::vector<std::string> failedNames GUARDED_BY(mutex);
  std::vector<std::string> misuseTexts GUARDED_BY(mutex);
  std::optional<Plan> overallPlan GUARDED_BY(mutex);
  std::map<std::string, Plan, std::less<>> namedPlans GUARDED_BY(mutex);
  OSStatus failureStatus GUARDED_BY(mutex) = static_cast<OSStatus>(fourCharCode("nope"));
  std::array<std::uint64_t, kObjectKindCount> creations GUARDED_BY(mutex){};
  std::array<std::uint64_t, kObjectKindCount> destructions GUARDED_BY(mutex){};
};

}  // namespace quenlor::platform::virtualhost
