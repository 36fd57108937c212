#include "platform/virtual/CallLedger.h"

#include <utility>

namespace quenlor::platform::virtualhost {

namespace {

constexpr std::size_t indexOf(ObjectKind kind) {
  return static_cast<std::size_t>(kind);
}

}  // namespace

void CallLedger::failCall(std::uint64_t number, Repeat repeat) {
  MutexLock lock(mutex);
  overallPlan = Plan{number, repeat};
}

void CallLedger::failNamed(const std::string& name, std::uint64_t occurrence, Repeat repeat) {
  MutexLock lock(mutex);
  namedPlans[name] = Plan{occurrence, repeat};
}

void CallLedger::setFailureStatus(OSStatus status) {
  MutexLock lock(mutex);
  failureStatus = status;
}

std::vector<std::string> CallLedger::calls() const {
  MutexLock lock(mutex);
  return callNames;
}

std::uint64_t CallLedger::count(std::string_view name) const {
  MutexLock lock(mutex);
  const auto found = counts.find(name);
  return found == counts.end() ? 0 : found->second;
}

std::uint64_t CallLedger::failableCalls() const {
  MutexLock lock(mutex);
  return failable;
}

std::vector<std::string> CallLedger::failedCalls() const {
  MutexLock lock(mutex);
  return failedNames;
}

std::uint64_t CallLedger::created(ObjectKind kind) const {
  MutexLock lock(mutex);
  return creations[indexOf(kind)];
}

std::uint64_t CallLedger::destroyed(ObjectKind kind) const {
  MutexLock lock(mutex);
  return destructions[indexOf(kind)];
}

std::uint64_t CallLedger::alive(ObjectKind kind) const {
  MutexLock lock(mutex);
  return creations[indexOf(kind)] - destructions[indexOf(kind)];
}

std::uint64_t CallLedger::aliveInAll() const {
  MutexLock lock(mutex);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kObjectKindCount; ++i) sum += creations[i] - destructions[i];
  return sum;
}

std::vector<std::string> CallLedger::misuses() const {
  MutexLock lock(mutex);
  return misuseTexts;
}

void CallLedger::record(std::string_view name) {
  MutexLock lock(mutex);
  callNames.emplace_back(name);
  countCall(name);
}

OSStatus CallLedger::attempt(std::string_view name) {
  MutexLock lock(mutex);
  callNames.emplace_back(name);
  return judge(name);
}

OSStatus CallLedger::attemptUnlisted(std::string_view name) {
  MutexLock lock(mutex);
  return judge(name);
}

void CallLedger::noteCreated(ObjectKind kind) {
  MutexLock lock(mutex);
  ++creations[indexOf(kind)];
}

void CallLedger::noteDestroyed(ObjectKind kind) {
  MutexLock lock(mutex);
  ++destructions[indexOf(kind)];
}

void CallLedger::noteMisuse(std::string text) {
  MutexLock lock(mutex);
  misuseTexts.push_back(std::move(text));
}

std::uint64_t CallLedger::countCall(std::string_view name) {
  const auto found = counts.find(name);
  if (found != counts.end()) return ++found->second;
  counts.emplace(name, 1);
  return 1;
}

OSStatus CallLedger::judge(std::string_view name) {
  ++failable;
  const std::uint64_t occurrence = countCall(name);
  const auto named = namedPlans.find(name);
  const bool fails = (overallPlan && overallPlan->hits(failable)) ||
                     (named != namedPlans.end() && named->second.hits(occurrence));
  if (!fails) return kAudioHardwareNoError;
  failedNames.emplace_back(name);
  return failureStatus;
}

}  // namespace quenlor::platform::virtualhost
