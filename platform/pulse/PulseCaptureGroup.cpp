#include "platform/pulse/PulseCaptureGroup.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// A server may send less than it was asked to at a time. Each delivery wakes the mixer's thread, so
// several short ones, and those of both sources, are gathered.
constexpr auto batch = 40ms;

// A source that is this late, such as one that has to wake up, no longer holds back the other.
constexpr auto patience = 500ms;

// A device with a faster clock has ever more to hand over than the other; this much may wait here.
constexpr auto mostHeldBack = 100ms;

// After this program could not run, samples may be there to be read.
constexpr auto secondLook = 20ms;

constexpr const char* names[] = {"System audio", "The microphone"};

}  // namespace

void PulseCaptureGroup::add(CaptureRole role, CaptureTrack& track) {
  ConnectionLock held(connection);
  const auto index = static_cast<std::size_t>(role);
  Member& member = members[index];
  member = {.name = names[index], .track = &track, .toldSource = track.sourceName()};
  track.setListener({.samplesCame =
                         [this, &member] {
                           connection.assertLocked();
                           samplesCame(member);
                         },
                     .interrupted =
                         [this] {
                           connection.assertLocked();
                           interrupted();
                         },
                     .streamEnded =
                         [this, &member](const std::string& reason) {
                           connection.assertLocked();
                           // Where the whole connection ended, the connection has said so.
                           if (connection.isGood() && member.track->isInterrupted())
                             tellInterruption(member, reason);
                           if (streamEnded) streamEnded();
                         }});
}

void PulseCaptureGroup::remove(CaptureRole role) {
  ConnectionLock held(connection);
  Member& member = members[static_cast<std::size_t>(role)];
  if (member.track != nullptr) member.track->setListener({});
  member = {};
  const auto isEmpty = [](const Member& each) { return each.track == nullptr; };
  if (std::ranges::all_of(members, isEmpty)) watch.reset();
}

void PulseCaptureGroup::start() {
  ConnectionLock held(connection);
  startedAt = Clock::now();
  isReleased = false;
  watch.emplace(connection, [this] {
    connection.assertLocked();
    samplesStayedAway();
  });
  watch->set(patience);
  std::array<Operation, 2> starts;
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].track != nullptr) starts[i] = members[i].track->run();
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].track != nullptr) connection.waitFor(starts[i]);
  // Where it ended meanwhile, there is nothing more to wait for.
  if (!connection.isGood()) throw PlatformError(connection.lastError());
}

void PulseCaptureGroup::setStreamEnded(std::function<void()> callback) {
  connection.assertLocked();
  streamEnded = std::move(callback);
}

void PulseCaptureGroup::follow(CaptureRole role, const std::string& sourceName,
                               const std::string& reason) {
  connection.assertLocked();
  Member& member = members[static_cast<std::size_t>(role)];
  if (member.track == nullptr) return;
  const bool isThere = member.track->sourceName() == sourceName &&
                       (sourceName.empty() || member.track->isConnected());
  if (isThere) return;
  if (sourceName.empty()) tellInterruption(member, reason);
  member.track->follow(sourceName);
}

void PulseCaptureGroup::samplesCame(Member& member) {
  if (!watch) return;
  if (connection.wasNeglected()) hearAll();
  if (!isReleased) {
    if (mayRelease()) release();
    return;
  }
  member.lastHeard = Clock::now();
  tellSource(member);
  if (longestWaiting() >= batch && isComplete()) deliver();
}

void PulseCaptureGroup::tellSource(Member& member) {
  if (!member.isToldInterrupted && member.toldSource == member.track->heardSourceName()) return;
  member.isToldInterrupted = false;
  member.toldSource = member.track->heardSourceName();
  // In the form of the first device, since that is the recording's.
  const CaptureForm& form = member.track->form();
  connection.trace(std::string(member.name) + " comes from " + member.toldSource +
                   " now; the server brings it to " + std::to_string(form.rate) + " Hz and " +
                   std::to_string(form.channels.channels) + " channels.");
}

void PulseCaptureGroup::tellInterruption(Member& member, const std::string& reason) {
  if (member.isToldInterrupted) return;
  member.isToldInterrupted = true;
  connection.trace(std::string(member.name) + " is interrupted: " + reason);
}

bool PulseCaptureGroup::mayRelease() const {
  if (Clock::now() - startedAt >= patience) return true;
  return std::ranges::all_of(members, [this](const Member& member) {
    connection.assertLocked();
    return member.track == nullptr || member.track->waiting() >= reserve();
  });
}

/// What the neediest source wants.
std::chrono::microseconds PulseCaptureGroup::reserve() const {
  std::chrono::microseconds longest{};
  for (const Member& member : members)
    if (member.track != nullptr) longest = std::max(longest, member.track->reserve());
  return longest;
}

std::chrono::microseconds PulseCaptureGroup::longestWaiting() const {
  std::chrono::microseconds longest{};
  for (const Member& member : members)
    if (member.track != nullptr) longest = std::max(longest, member.track->waiting());
  return longest;
}

/// They begin together. What is late gets silence in front instead, so that it ends where the
/// others end.
void PulseCaptureGroup::release() {
  const Clock::time_point now = Clock::now();
  const auto longest = longestWaiting();
  const auto shared = std::min(sharedWaiting(), longest);
  const auto depth = shared >= reserve() ? shared : longest;
  for (Member& member : members) {
    if (member.track == nullptr) continue;
    const auto waiting = member.track->waiting();
    if (waiting > 0us) member.track->deliverSilence(depth - waiting);
    member.track->deliver(depth);
    if (waiting > 0us)
      member.track->beginTimeline();
    else if (depth > 0us)
      member.track->beginTimelineLate(now, depth);
    else
      member.track->beginTimelineLate(startedAt, depth);
  }
  for (Member& member : members) member.lastHeard = now;
  isReleased = true;
  fillSilences();
}

/// Whether its samples are known to be missing, or stay away for long.
bool PulseCaptureGroup::isQuiet(const Member& member) const {
  return member.track->isInterrupted() || Clock::now() - member.lastHeard >= patience;
}

bool PulseCaptureGroup::areAllQuiet() const {
  return std::ranges::all_of(members, [this](const Member& member) {
    connection.assertLocked();
    return member.track == nullptr || isQuiet(member);
  });
}

/// Whether silence stands in for the source's samples.
bool PulseCaptureGroup::isSilent(const Member& member) const {
  return member.track != nullptr && member.track->waiting() == 0us && isQuiet(member);
}

bool PulseCaptureGroup::isAnySilent() const {
  return std::ranges::any_of(members, [this](const Member& member) {
    connection.assertLocked();
    return isSilent(member);
  });
}

/// Whether none has to be waited for.
bool PulseCaptureGroup::isComplete() const {
  return std::ranges::all_of(members, [this](const Member& member) {
    connection.assertLocked();
    return member.track == nullptr || member.track->waiting() > 0us || isSilent(member);
  });
}

/// What each of those has that are heard.
std::chrono::microseconds PulseCaptureGroup::sharedWaiting() const {
  auto shortest = std::chrono::microseconds::max();
  for (const Member& member : members)
    if (member.track != nullptr && !isSilent(member))
      shortest = std::min(shortest, member.track->waiting());
  return shortest;
}

void PulseCaptureGroup::deliver() {
  const auto shared = sharedWaiting();
  for (Member& member : members) {
    if (member.track == nullptr) continue;
    const bool isAhead = member.track->waiting() - shared > mostHeldBack;
    member.track->deliver(isAhead ? member.track->waiting() : shared);
  }
  fillSilences();
}

void PulseCaptureGroup::deliverAll() {
  for (Member& member : members)
    if (member.track != nullptr) member.track->deliver();
  fillSilences();
}

void PulseCaptureGroup::fillSilences() {
  for (Member& member : members) {
    if (!isSilent(member)) continue;
    if (!member.track->isInterrupted()) tellInterruption(member, "No samples come.");
    member.track->fill();
  }
  watch->set(isAnySilent() ? batch : patience);
}

/// Silence has to go out before the reserve runs out.
void PulseCaptureGroup::interrupted() {
  if (isReleased && watch) watch->set(batch);
}

void PulseCaptureGroup::samplesStayedAway() {
  if (!isReleased) {
    release();
  } else if (connection.wasNeglected()) {
    hearAll();
    watch->set(secondLook);
  } else if (areAllQuiet()) {
    deliverAll();
  } else {
    watch->set(batch);  // One was heard after the last delivery.
  }
}

/// Nobody was there to hear them, so none counts as silent for that.
void PulseCaptureGroup::hearAll() {
  for (Member& member : members) member.lastHeard = Clock::now();
}

}  // namespace quenlor::platform::pulse
