#include "SessionFixture.h"
#include "SidecarTrace.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""s;

class SessionStart : public SessionFixture {
 protected:
  /// The messages that action traces.
  std::vector<std::string> traceOf(const std::function<void()>& action) const {
    constexpr std::size_t tagAndTime = 42;
    const TemporaryFolder traceFolder;
    locateSidecarLog(traceFolder.path());
    action();
    std::ifstream file(traceFolder / "quenlor-helper-audio.log");
    std::vector<std::string> messages;
    for (std::string line; std::getline(file, line);) messages.push_back(line.substr(tagAndTime));
    return messages;
  }
};

TEST_F(SessionStart, SetsTheTapUp) {
  makeSession({});
  session->start();
  const auto& tap = platform->hardware().lastTapDescription();
  EXPECT_EQ(tap->name, "A title");
  EXPECT_TRUE(tap->isPrivate);
  EXPECT_FALSE(tap->isExclusive);
  EXPECT_TRUE(tap->processes.empty());
  EXPECT_EQ(tap->deviceUID, "VirtualOutput");
  EXPECT_EQ(tap->stream, 0);
  const auto first = platform->hardware().lastAggregateDescription();
  EXPECT_EQ(first->name, "Quenlor Helper Capture");
  EXPECT_TRUE(first->isPrivate);
  EXPECT_TRUE(first->tapAutoStart);
  const std::regex randomUUID(
      "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  EXPECT_TRUE(std::regex_match(first->uid, randomUUID)) << first->uid;
  EXPECT_EQ(platform->hardware().lastTapList().size(), 1U);
  session->stop();
  expectEverythingReleased();

  makeSession({});
  session->start();
  EXPECT_NE(platform->hardware().lastAggregateDescription()->uid, first->uid);
  session->stop();
}

/// Of a start that fails, the trace ends with the step that failed: the last line of a failed call
/// is that it is made, and nothing is said about calls that may fail.
TEST_F(SessionStart, TracesUpToTheCallThatFails) {
  std::vector<std::string> whole;
  const std::vector<std::pair<std::string, std::string>> lastLines = {
      {"", "Mixer timer started."},
      {"authorizationStatus", "Ensuring microphone access."},
      {"inputFormat", "Reading the microphone input node format."},
      {"makeConverter", "Mixer timer started."},
      {"engine.start", "Starting the microphone engine."},
      {"getPropertyData(dOut)", "Mixer timer started."},
      {"getPropertyData(uid )", "Mixer timer started."},
      {"createProcessTap", "Calling AudioHardwareCreateProcessTap."},
      {"createAggregateDevice", "Calling AudioHardwareCreateAggregateDevice."},
      {"getPropertyData(tuid)", "Reading the tap UID."},
      {"setPropertyData(tap#)", "Setting the aggregate-device tap list."},
      {"getPropertyData(sfmt)", "Reading the aggregate-device stream format."},
      {"makeFormat", "Reading the aggregate-device stream format."},
      {"createIOProcID", "Calling AudioDeviceCreateIOProcIDWithBlock."},
      {"startDevice", "Calling AudioDeviceStart."}};
  for (const auto& [call, lastLine] : lastLines) {
    makeSession({});
    if (!call.empty()) ledger().failNamed(call);
    const auto messages = traceOf([this] { errorOf([this] { session->start(); }); });
    session->discardIfUnfinished();
    if (call.empty()) whole = messages;
    const auto last = std::ranges::find(whole, lastLine);
    ASSERT_NE(last, whole.end()) << lastLine;
    EXPECT_EQ(messages, std::vector(whole.begin(), last + 1)) << call;
  }
}

TEST_F(SessionStart, TapsEverythingWhereThereIsNoDefaultOutput) {
  for (const bool isThere : {false, true}) {
    VirtualSettings settings;
    if (!isThere) settings.output.reset();
    // Without an output the virtual device has no rate to report.
    settings.reportedStreamFormat =
        platform::AudioFormat::float32(44'100, 2, true).streamDescription();
    makeSession(settings);
    if (isThere) ledger().failNamed("getPropertyData(uid )");
    session->start();
    EXPECT_FALSE(platform->hardware().lastTapDescription()->deviceUID);
    EXPECT_FALSE(platform->hardware().lastTapDescription()->stream);
    session->stop();
  }
}

TEST_F(SessionStart, RefusesOtherModesBeforeTouchingAnything) {
  for (const char* mode : {"Mixed", "mixed ", ""}) {
    makeSession({}, mode);
    const auto calls = ledger().calls();
    std::string error;
    const auto trace = traceOf([&] { error = errorOf([&] { session->start(); }); });
    EXPECT_EQ(error, "The Quenlor audio session only supports mixed mode.");
    EXPECT_EQ(trace, std::vector<std::string>());
    EXPECT_EQ(ledger().calls(), calls);
    EXPECT_TRUE(fileExists());
    session->discardIfUnfinished();
    EXPECT_FALSE(fileExists());
  }
}

TEST_F(SessionStart, IsRefusedButForTheFirstTime) {
  const auto start = [this] { session->start(); };
  const auto stop = [this] { session->stop(); };
  const std::vector<std::pair<std::string, std::function<void()>>> pasts = {
      {"a start", start},
      {"a failed start",
       [&] {
         ledger().failNamed("engine.start");
         EXPECT_NE(errorOf(start), "");
       }},
      {"a discard", [&] { session->discardIfUnfinished(); }},
      {"a stop", [&] {
         start();
         stop();
       }}};
  for (const auto& [past, happen] : pasts) {
    makeSession({});
    happen();
    const auto calls = ledger().calls();
    EXPECT_EQ(errorOf(start), "The Quenlor audio session is already running.") << past;
    EXPECT_EQ(ledger().calls(), calls) << past;
    if (past == "a start") {
      clock->advance(1s);
      EXPECT_EQ(session->stop().durationSeconds, 1.0) << "and still runs";
    }
    session->discardIfUnfinished();
    expectEverythingReleased();
  }
}

}  // namespace
}  // namespace quenlor::test
