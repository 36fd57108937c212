#include "SessionFixture.h"

#include <chrono>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

class SessionStart : public SessionFixture {};

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
    EXPECT_EQ(errorOf([&] { session->start(); }),
              "The Quenlor audio session only supports mixed mode.");
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
      {"a failed stop",
       [&] {
         ledger().failNamed("convert");
         start();
         clock->advance(100ms);
         EXPECT_NE(errorOf(stop), "");
       }},
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
