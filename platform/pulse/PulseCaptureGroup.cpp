#include "platform/pulse/PulseCaptureGroup.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// How long the end of a recording may take to come from the server.
constexpr auto longestFinish = 200ms;

// How long a source may come that was not chosen, until the trace says so: where the server takes
// a stream to the new default device, its answer about that device follows.
constexpr auto longestUnchosen = 1s;

constexpr CaptureRole roles[] = {CaptureRole::system, CaptureRole::microphone};

}  // namespace

void PulseCaptureGroup::add(CaptureRole role, const CaptureForm& form,
                            const std::string& sourceName, Receiver receiver) {
  ConnectionLock held(connection);
  Member& member = memberOf(role);
  CaptureLane& lane = capture.add(role, form.rate, form.channels.channels, std::move(receiver));
  try {
    member.track.emplace(connection, form, sourceName, lane,
                         [this, role](const std::string& reason) {
                           connection.assertLocked();
                           streamHasEnded(role, reason);
                         });
  } catch (const PlatformError&) {
    capture.remove(role);
    throw;
  }
  member.isReportedInterrupted = false;
  member.reportedSource = sourceName;
}

void PulseCaptureGroup::remove(CaptureRole role) {
  ConnectionLock held(connection);
  memberOf(role).track.reset();
  capture.remove(role);
}

void PulseCaptureGroup::start() {
  ConnectionLock held(connection);
  std::array<Operation, 2> starts;
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].track) starts[i] = members[i].track->run();
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].track) connection.waitFor(starts[i]);
  // Where it ended meanwhile, there is nothing more to wait for.
  if (!connection.isGood()) throw PlatformError(connection.lastError());
  capture.begin(Clock::now());
  isRunning = true;
}

void PulseCaptureGroup::finish() {
  const Clock::time_point end = Clock::now();
  ConnectionLock held(connection);
  if (!isRunning) return;
  capture.endAt(end);
  connection.serveUntil(end + longestFinish, [this] {
    connection.assertLocked();
    return capture.isComplete();
  });
  isRunning = false;
  connection.guard([this] {
    connection.assertLocked();
    capture.finish();
  });
  for (const CaptureRole role : roles) reportLoss(role);
}

bool PulseCaptureGroup::served() {
  connection.assertLocked();
  if (!isRunning) return false;
  const Clock::time_point now = Clock::now();
  for (Member& member : members)
    if (member.track) member.track->observe(now);
  connection.guard([this, now] {
    connection.assertLocked();
    capture.advance(now);
  });
  soundHandedOver =
      std::chrono::duration<double>(static_cast<double>(capture.handedOver()) / recordedRate);
  for (const CaptureRole role : roles)
    if (memberOf(role).track) report(role, now);
  return capture.isSettling();
}

void PulseCaptureGroup::setStreamEnded(std::function<void()> callback) {
  connection.assertLocked();
  streamEnded = std::move(callback);
}

void PulseCaptureGroup::follow(CaptureRole role, const std::string& sourceName,
                               const std::string& text) {
  connection.assertLocked();
  Member& member = memberOf(role);
  if (!member.track) return;
  member.chosenSource = sourceName;
  member.chosenDescription = text;
  const bool isThere = member.track->sourceName() == sourceName &&
                       (sourceName.empty() || member.track->isConnected());
  if (isThere) return;
  if (sourceName.empty()) reportInterruption(member, text);
  member.track->follow(sourceName);
}

void PulseCaptureGroup::streamHasEnded(CaptureRole role, const std::string& reason) {
  // Where the whole connection ended, the connection has said so.
  if (connection.isGood() && !capture.lane(role)->hasRun())
    reportInterruption(memberOf(role), reason);
  if (streamEnded) streamEnded();
}

/// Says in the trace where a source comes from that was interrupted or has changed, or that nothing
/// comes.
void PulseCaptureGroup::report(CaptureRole role, Clock::time_point now) {
  Member& member = memberOf(role);
  const CaptureLane& lane = *capture.lane(role);
  if (!lane.hasRun()) {
    if (lane.hasTimedOut()) reportInterruption(member, "No samples come.");
    return;
  }
  if (!member.isReportedInterrupted && member.reportedSource == member.track->heardSourceName())
    return;
  if (member.heardSource != member.track->heardSourceName()) {
    member.heardSource = member.track->heardSourceName();
    member.heardSince = now;
  }
  const bool isChosen = member.heardSource == member.chosenSource;
  if (!isChosen && now - member.heardSince < longestUnchosen) return;
  member.isReportedInterrupted = false;
  member.reportedSource = member.heardSource;
  const std::string& device = isChosen ? member.chosenDescription : member.reportedSource;
  // In the form of the first device, since that is the recording's.
  const CaptureForm& form = member.track->form();
  connection.trace(std::string(member.name) + " comes from " + device +
                   " now; the server brings it to " + std::to_string(form.rate) + " Hz and " +
                   std::to_string(form.channels.channels) + " channels.");
}

void PulseCaptureGroup::reportInterruption(Member& member, const std::string& reason) {
  if (std::exchange(member.isReportedInterrupted, true)) return;
  connection.trace(std::string(member.name) + " is interrupted: " + reason);
}

void PulseCaptureGroup::reportLoss(CaptureRole role) {
  const auto& lane = capture.lane(role);
  // Fractions of a millisecond are rounding.
  if (!lane || lane->framesLost() < static_cast<std::int64_t>(recordedRate / 1000)) return;
  std::string seconds = std::to_string(static_cast<double>(lane->framesLost()) / recordedRate);
  seconds.resize(seconds.size() - 3);  // Of microseconds.
  connection.trace(std::string(memberOf(role).name) + ": silence of " + seconds +
                   " s was put in for lost time.");
}

}  // namespace quenlor::platform::pulse
