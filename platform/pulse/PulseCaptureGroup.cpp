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

// When all that stay away have done so for that long, as one may be heard last after a delivery.
constexpr auto longestWait = patience + 2 * batch;

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

/// Whatever is late gets silence in front, so that it ends where the others end.
void PulseCaptureGroup::release() {
  const Clock::time_point now = Clock::now();
  const auto depth = longestWaiting();
  for (Member& member : members) {
    if (member.track == nullptr) continue;
    const auto waiting = member.track->waiting();
    if (waiting > 0us && waiting < reserve()) member.track->deliverSilence(depth - waiting);
    if (waiting > 0us)
      member.track->beginTimeline();
    else if (depth > 0us)
      member.track->beginTimelineLate(now, depth);
    else
      member.track->beginTimelineLate(startedAt, depth);
  }
  for (Member& member : members) member.lastHeard = now;
  deliveredAt = now;
  isReleased = true;
  deliver();
}

/// Whether silence stands in for the source's samples.
bool PulseCaptureGroup::isSilent(const Member& member) const {
  if (member.track == nullptr || member.track->waiting() > 0us) return false;
  return member.track->isInterrupted() || Clock::now() - member.lastHeard >= patience;
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

void PulseCaptureGroup::deliver() {
  const Clock::time_point now = Clock::now();
  if (now - deliveredAt >= patience && !connection.wasNeglected()) countPadding();
  deliveredAt = now;
  for (Member& member : members) {
    if (member.track == nullptr) continue;
    member.track->deliver();
    if (!isSilent(member)) continue;
    if (!member.track->isInterrupted()) tellInterruption(member, "No samples come.");
    member.track->fill();
  }
  watch->set(isAnySilent() ? batch : longestWait);
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
  } else {
    deliver();
  }
}

/// Nothing was delivered for so long that the mixer has used up everything. Where one source had
/// less than the other, it has put silence in its place.
void PulseCaptureGroup::countPadding() {
  std::chrono::microseconds longest{};
  for (const Member& member : members)
    if (member.track != nullptr) longest = std::max(longest, member.track->delivered());
  for (const Member& member : members)
    if (member.track != nullptr)
      member.track->wasPadded(
          std::min<std::chrono::microseconds>(longest - member.track->delivered(), patience));
}

/// Nobody was there to hear them, so none counts as silent for that.
void PulseCaptureGroup::hearAll() {
  for (Member& member : members) member.lastHeard = Clock::now();
}

}  // namespace quenlor::platform::pulse
