#include "AudioTapSession.h"
#include "LocalizedError.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AuthorizationStatus;
using platform::virtualhost::CallLedger;
using platform::virtualhost::ManualClock;
using platform::virtualhost::ObjectKind;
using platform::virtualhost::VirtualPlatform;
using platform::virtualhost::VirtualSettings;

using Repeat = CallLedger::Repeat;

const std::vector<std::string> releases = {"stopDevice", "destroyIOProcID",
                                           "destroyAggregateDevice", "destroyProcessTap"};

const std::string coreAudio = "Core Audio error while trying to ";
const std::string nope = ": 1852797029 (nope)";
const std::string badFormat = "Audio format error: ";

/// What the failure of a call means: its error, or nothing where the recording survives it.
const std::map<std::string, std::string> meanings = {
    {"makeEngine", "The virtual host failed to make an engine."},
    {"authorizationStatus", "Microphone permission was denied for the Quenlor helper."},
    {"requestAccess", "Microphone permission was denied for the Quenlor helper."},
    {"defaultDevice", "No microphone input device is available for the Quenlor helper."},
    {"inputFormat", "No microphone input node is available for the Quenlor audio session."},
    {"engine.start", "The virtual engine failed to start."},
    {"getPropertyData(dOut)", ""},
    {"getPropertyData(uid )", ""},
    {"createProcessTap", coreAudio + "create the Core Audio tap" + nope},
    {"createAggregateDevice", coreAudio + "create the aggregate device" + nope},
    {"getPropertyData(tuid)", coreAudio + "query the tap UID" + nope},
    {"setPropertyData(tap#)", coreAudio + "attach the tap to the aggregate device" + nope},
    {"getPropertyData(sfmt)", coreAudio + "query the aggregate stream format" + nope},
    {"makeFormat", badFormat + "Unable to create AVAudioFormat from the aggregate device ASBD."},
    {"createIOProcID", coreAudio + "create the aggregate IOProc" + nope},
    {"startDevice", coreAudio + "start the aggregate device" + nope},
    {"makeConverter", badFormat + "Unable to create an AVAudioConverter."},
    {"convert", "The virtual converter failed."},
    {"stopDevice", ""},
    {"destroyIOProcID", ""},
    {"destroyAggregateDevice", ""},
    {"destroyProcessTap", ""}};

/// One recording, from a new host to the end of everything, with some calls failing.
class Recording {
 public:
  explicit Recording(const std::filesystem::path& outputPath) : path(outputPath) {
    std::filesystem::remove(path);
  }

  void run(std::chrono::milliseconds length) {
    try {
      session =
          std::make_shared<AudioTapSession>(StartRequest{"mixed", path.string(), "Sweep"}, host);
      session->start();
      clock->advance(length);
      result = session->stop();
    } catch (const LocalizedError& failure) {
      error = failure.errorDescription();
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    if (session && !result) session->discardIfUnfinished();
    session.reset();
    clock->runPending();
  }

  bool happened(const std::string& call) const { return host.ledger()->count(call) > 0; }
  bool failed(const std::string& call) const {
    return std::ranges::count(host.ledger()->failedCalls(), call) > 0;
  }
  bool succeeded(const std::string& call) const { return happened(call) && !failed(call); }

  const std::filesystem::path path;
  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  // The user is asked, so that asking can fail too.
  VirtualPlatform host{clock,
                       VirtualSettings{.authorizationStatus = AuthorizationStatus::notDetermined}};
  std::shared_ptr<AudioTapSession> session;
  std::optional<StopResult> result;
  std::string error;
};

/// The releasing calls that the objects made by this recording need, in the one right order.
std::vector<std::string> expectedReleases(const Recording& recording) {
  std::vector<std::string> expected;
  if (recording.succeeded("engine.start")) expected = {"removeTap", "engine.stop"};
  if (recording.succeeded("createIOProcID"))
    expected.insert(expected.end(), {"stopDevice", "destroyIOProcID"});
  if (recording.succeeded("createAggregateDevice")) expected.emplace_back("destroyAggregateDevice");
  if (recording.succeeded("createProcessTap")) expected.emplace_back("destroyProcessTap");
  return expected;
}

std::vector<std::string> actualReleases(const Recording& recording) {
  std::vector<std::string> calls = recording.host.ledger()->calls();
  // Set-up clears the input node once before it installs its tap.
  const auto setUp = std::ranges::find(calls, "removeTap");
  if (setUp != calls.end()) calls.erase(setUp);
  std::erase_if(calls, [](const std::string& call) {
    return call != "removeTap" && call != "engine.stop" && std::ranges::count(releases, call) == 0;
  });
  return calls;
}

void expectReleased(const Recording& recording) {
  EXPECT_EQ(actualReleases(recording), expectedReleases(recording));
  const CallLedger& ledger = *recording.host.ledger();
  EXPECT_EQ(ledger.misuses(), std::vector<std::string>());
  const std::uint64_t taps = recording.failed("destroyProcessTap") ? 1 : 0;
  const std::uint64_t devices = recording.failed("destroyAggregateDevice") ? 1 : 0;
  // An IO block that could not be taken back keeps its queue.
  const std::uint64_t blocks = recording.failed("destroyIOProcID") ? 1 : 0;
  EXPECT_EQ(ledger.alive(ObjectKind::tap), taps);
  EXPECT_EQ(ledger.alive(ObjectKind::aggregateDevice), devices);
  EXPECT_EQ(ledger.alive(ObjectKind::ioProc), blocks);
  EXPECT_EQ(ledger.alive(ObjectKind::queue), blocks);
  EXPECT_EQ(ledger.aliveInAll(), taps + devices + 2 * blocks);
}

class CallSweep : public testing::Test {
 protected:
  /// Records once without failures, then once for each call with that one failing, and so learns
  /// the names of the calls. Expects of each run what its call means.
  void sweepSingly(std::chrono::milliseconds recordingLength) {
    length = recordingLength;
    Recording whole(path);
    whole.run(length);
    ASSERT_EQ(whole.error, "");
    wholeFile = readWaveFile(path);
    ASSERT_NEAR(wholeFile.durationSeconds(), std::chrono::duration<double>(length).count(), 0.06);

    std::vector<std::string> errors;
    for (std::uint64_t call = 1; call <= whole.host.ledger()->failableCalls(); ++call) {
      Recording recording(path);
      recording.host.ledger()->failCall(call);
      recording.run(length);
      ASSERT_EQ(recording.host.ledger()->failedCalls().size(), 1U);
      names.push_back(recording.host.ledger()->failedCalls().front());
      errors.push_back(recording.error);
      expectOutcome(recording);
      ASSERT_FALSE(HasFailure()) << describe(call);
    }
    for (std::uint64_t call = 1; call <= names.size(); ++call)
      ASSERT_EQ(errors[call - 1], meaning(call)) << describe(call);
  }

  void expectOutcome(const Recording& recording) const {
    expectReleased(recording);
    EXPECT_EQ(recording.result.has_value(), recording.error.empty());
    ASSERT_EQ(std::filesystem::exists(path), recording.result.has_value());
    if (!recording.result) return;
    EXPECT_EQ(recording.result->sizeBytes, std::filesystem::file_size(path));
    EXPECT_EQ(readWaveFile(path).samples, wholeFile.samples) << "what may fail is not heard";
  }

  /// The error that the failure of the call with this number means.
  std::string meaning(std::uint64_t call) const {
    const std::string& name = names[call - 1];
    if (call == earlyConverter) {
      EXPECT_EQ(name, "makeConverter");
      return "";  // it is made later, when it is needed
    }
    if (name != "makeBuffer") return meanings.at(name);
    // A buffer is converted next, where it is the one to convert into.
    const bool isTarget = call < names.size() && names[call] == "convert";
    return badFormat + (isTarget ? "Unable to allocate the converted PCM buffer."
                                 : "Unable to allocate an owned system PCM buffer.");
  }

  /// The same where all later calls fail as well: the first that matters tells.
  std::string meaningForGood(std::uint64_t call) const {
    while (call <= names.size() && meaning(call).empty()) ++call;
    return call <= names.size() ? meaning(call) : "";
  }

  std::string describe(std::uint64_t call) const {
    return "with call " + std::to_string(call) + " failing, " + names[call - 1];
  }

  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "recording.wav";
  /// Of all calls that can fail, in order.
  std::vector<std::string> names;
  std::chrono::milliseconds length{0};

 private:
  /// Behind makeEngine, the three of the permission, and inputFormat.
  static constexpr std::uint64_t earlyConverter = 6;

  WaveFile wholeFile;
};

TEST_F(CallSweep, EachCallOnceAndForGood) {
  ASSERT_NO_FATAL_FAILURE(sweepSingly(std::chrono::seconds{2}));
  for (std::uint64_t call = 1; call <= names.size(); ++call) {
    Recording recording(path);
    recording.host.ledger()->failCall(call, Repeat::forGood);
    recording.run(length);
    expectOutcome(recording);
    EXPECT_EQ(recording.error, meaningForGood(call));
    ASSERT_FALSE(HasFailure()) << describe(call) << ", and all later ones";
  }
  std::printf("count platform-calls-failed %zu\n", 2 * names.size());
}

TEST_F(CallSweep, EachCallTogetherWithEachRelease) {
  ASSERT_NO_FATAL_FAILURE(sweepSingly(std::chrono::milliseconds{200}));
  std::size_t pairs = 0;
  for (std::uint64_t call = 1; call <= names.size(); ++call) {
    for (const std::string& release : releases) {
      Recording recording(path);
      recording.host.ledger()->failCall(call);
      recording.host.ledger()->failNamed(release);
      recording.run(length);
      expectOutcome(recording);
      EXPECT_EQ(recording.error, meaning(call));
      ASSERT_FALSE(HasFailure()) << describe(call) << ", and " << release;
      ++pairs;
    }
  }
  std::printf("count pairs %zu\n", pairs);
}

}  // namespace
}  // namespace quenlor::test
