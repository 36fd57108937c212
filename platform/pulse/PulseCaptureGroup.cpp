#include "platform/pulse/PulseCaptureGroup.h"

#include <algorithm>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// A server may send less than it was asked to at a time. Each delivery wakes the mixer's thread, so
// several short ones, and those of both sources, are gathered.
constexpr auto batch = 40ms;

// A source that is this late, such as one that has to wake up, no longer holds back the other.
constexpr auto patience = 500ms;

}  // namespace

void PulseCaptureGroup::add(CaptureRole role, PulseCaptureStream& stream) {
  ConnectionLock held(connection);
  Member& member = members[static_cast<std::size_t>(role)];
  member = {&stream, false};
  stream.setReadable([this, &member] {
    connection.assertLocked();
    samplesCame(member);
  });
}

void PulseCaptureGroup::remove(CaptureRole role) {
  ConnectionLock held(connection);
  Member& member = members[static_cast<std::size_t>(role)];
  if (member.stream != nullptr) member.stream->setReadable(nullptr);
  member = {};
}

void PulseCaptureGroup::start() {
  ConnectionLock held(connection);
  startedAt = Clock::now();
  depth = {};
  std::array<Operation, 2> starts;
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].stream != nullptr) starts[i] = members[i].stream->run();
  for (std::size_t i = 0; i < members.size(); ++i)
    if (members[i].stream != nullptr) connection.waitFor(starts[i]);
}

void PulseCaptureGroup::samplesCame(Member& member) {
  if (!member.isDelivering) {
    if (mayRelease()) release();
  } else if (member.stream->waiting() >= batch) {
    for (Member& each : members)
      if (each.isDelivering) each.stream->deliver();
  }
}

bool PulseCaptureGroup::mayRelease() const {
  if (Clock::now() - startedAt >= patience) return true;
  return std::ranges::all_of(members, [this](const Member& member) {
    connection.assertLocked();
    return member.stream == nullptr || member.stream->waiting() >= reserve();
  });
}

/// What the neediest source wants.
std::chrono::microseconds PulseCaptureGroup::reserve() const {
  std::chrono::microseconds longest{};
  for (const Member& member : members)
    if (member.stream != nullptr) longest = std::max(longest, member.stream->reserve());
  return longest;
}

void PulseCaptureGroup::release() {
  std::chrono::microseconds deepest = depth;
  for (Member& member : members) {
    if (member.stream == nullptr || member.isDelivering) continue;
    const std::chrono::microseconds waiting = member.stream->waiting();
    if (waiting < reserve()) continue;
    if (waiting < depth) member.stream->deliverSilence(depth - waiting);
    member.isDelivering = true;
    member.stream->deliver();
    deepest = std::max(deepest, waiting);
  }
  depth = deepest;
}

}  // namespace quenlor::platform::pulse
