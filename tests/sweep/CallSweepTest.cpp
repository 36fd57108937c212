#include "tests/sidecar/SessionFixture.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::test {
namespace {

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

class CallSweep : public SessionFixture {
 protected:
  /// One recording, from a new host to the end of everything, with the calls failing that
  /// arrangeFailures asks for.
  void record(const std::function<void()>& arrangeFailures) {
    std::filesystem::remove(path);
    result.reset();
    // The user is asked, so that asking can fail too.
    makePlatform({.authorizationStatus = platform::AuthorizationStatus::notDetermined});
    arrangeFailures();
    error = errorOf([this] {
      makeSessionOn(*platform);
      session->start();
      clock->advance(length);
      result = session->stop();
    });
    if (session && !result) session->discardIfUnfinished();
    session.reset();
    clock->runPending();
  }

  /// Records once without failures, then once for each call with that one failing, and so learns
  /// the names of the calls. Expects of each run what its call means.
  void sweepSingly(std::chrono::milliseconds recordingLength) {
    length = recordingLength;
    record([] {});
    ASSERT_EQ(error, "");
    wholeFile = recording();
    ASSERT_NEAR(wholeFile.durationSeconds(), std::chrono::duration<double>(length).count(), 0.06);

    std::vector<std::string> errors;
    const std::uint64_t callCount = ledger().failableCalls();
    for (std::uint64_t call = 1; call <= callCount; ++call) {
      record([&] { ledger().failCall(call); });
      ASSERT_EQ(ledger().failedCalls().size(), 1U);
      names.push_back(ledger().failedCalls().front());
      errors.push_back(error);
      expectOutcome();
      ASSERT_FALSE(HasFailure()) << describe(call);
    }
    for (std::uint64_t call = 1; call <= names.size(); ++call)
      ASSERT_EQ(errors[call - 1], meaning(call)) << describe(call);
  }

  void expectOutcome() {
    expectReleased();
    EXPECT_EQ(result.has_value(), error.empty());
    ASSERT_EQ(fileExists(), result.has_value());
    if (!result) return;
    EXPECT_EQ(result->sizeBytes, std::filesystem::file_size(path));
    EXPECT_EQ(recording().samples, wholeFile.samples) << "what may fail is not heard";
  }

  std::uint64_t failures(const std::string& call) {
    return static_cast<std::uint64_t>(std::ranges::count(ledger().failedCalls(), call));
  }

  /// The releasing calls that the objects made by this recording need, in the one right order.
  std::vector<std::string> expectedReleases() {
    const auto succeeded = [this](const std::string& call) {
      return ledger().count(call) > 0 && failures(call) == 0;
    };
    std::vector<std::string> expected;
    if (succeeded("engine.start")) expected = {"removeTap", "engine.stop"};
    if (succeeded("createIOProcID"))
      expected.insert(expected.end(), {"stopDevice", "destroyIOProcID"});
    if (succeeded("createAggregateDevice")) expected.emplace_back("destroyAggregateDevice");
    if (succeeded("createProcessTap")) expected.emplace_back("destroyProcessTap");
    return expected;
  }

  std::vector<std::string> actualReleases() {
    std::vector<std::string> calls = ledger().calls();
    // Set-up clears the input node once before it installs its tap.
    const auto setUp = std::ranges::find(calls, "removeTap");
    if (setUp != calls.end()) calls.erase(setUp);
    std::erase_if(calls, [](const std::string& call) {
      return call != "removeTap" && call != "engine.stop" &&
             std::ranges::count(releases, call) == 0;
    });
    return calls;
  }

  void expectReleased() {
    EXPECT_EQ(actualReleases(), expectedReleases());
    EXPECT_EQ(ledger().misuses(), std::vector<std::string>());
    const std::uint64_t taps = failures("destroyProcessTap");
    const std::uint64_t devices = failures("destroyAggregateDevice");
    // An IO block that could not be taken back keeps its queue.
    const std::uint64_t blocks = failures("destroyIOProcID");
    EXPECT_EQ(ledger().alive(ObjectKind::tap), taps);
    EXPECT_EQ(ledger().alive(ObjectKind::aggregateDevice), devices);
    EXPECT_EQ(ledger().alive(ObjectKind::ioProc), blocks);
    EXPECT_EQ(ledger().alive(ObjectKind::queue), blocks);
    EXPECT_EQ(ledger().aliveInAll(), taps + devices + 2 * blocks);
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

  /// Of all calls that can fail, in order.
  std::vector<std::string> names;
  std::chrono::milliseconds length{0};
  // Of the last recording.
  std::optional<StopResult> result;
  std::string error;

 private:
  /// Behind makeEngine, the three of the permission, and inputFormat.
  static constexpr std::uint64_t earlyConverter = 6;

  WaveFile wholeFile;
};

TEST_F(CallSweep, EachCallOnceAndForGood) {
  ASSERT_NO_FATAL_FAILURE(sweepSingly(std::chrono::seconds{2}));
  for (std::uint64_t call = 1; call <= names.size(); ++call) {
    record([&] { ledger().failCall(call, CallLedger::Repeat::forGood); });
    expectOutcome();
    EXPECT_EQ(error, meaningForGood(call));
    ASSERT_FALSE(HasFailure()) << describe(call) << ", and all later ones";
  }
  std::printf("count platform-calls-failed %zu\n", 2 * names.size());
}

TEST_F(CallSweep, EachCallTogetherWithEachRelease) {
  ASSERT_NO_FATAL_FAILURE(sweepSingly(std::chrono::milliseconds{200}));
  std::size_t pairs = 0;
  for (std::uint64_t call = 1; call <= names.size(); ++call) {
    for (const std::string& release : releases) {
      record([&] {
        ledger().failCall(call);
        ledger().failNamed(release);
      });
      expectOutcome();
      EXPECT_EQ(error, meaning(call));
      ASSERT_FALSE(HasFailure()) << describe(call) << ", and " << release;
      ++pairs;
    }
  }
  std::printf("count pairs %zu\n", pairs);
}

}  // namespace
}  // namespace quenlor::test
