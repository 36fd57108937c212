#include "SessionFixture.h"
#include "SidecarTrace.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using std::chrono_literals::operator""ms;

class SessionStart : public SessionFixture {};

/// Whether text is a random UUID in upper case.
bool isRandomUUID(std::string_view text) {
  constexpr std::string_view form = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";
  constexpr std::string_view digits = "0123456789ABCDEF";
  constexpr std::string_view variants = "89AB";
  return std::ranges::equal(text, form, [&](char c, char wanted) {
    if (wanted == 'x') return digits.find(c) != digits.npos;
    return wanted == 'y' ? variants.find(c) != variants.npos : c == wanted;
  });
}

/// Has the trace written to a file for a scope.
class TraceFile {
 public:
  explicit TraceFile(const std::filesystem::path& file)
      : before(std::exchange(sidecarLogURL, file)) {}
  ~TraceFile() { sidecarLogURL = before; }
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

 private:
  std::filesystem::path before;
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
  EXPECT_TRUE(isRandomUUID(first->uid)) << first->uid;
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
  const TraceFile trace(folder / "trace.log");
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
  EXPECT_FALSE(std::filesystem::exists(sidecarLogURL));
  makeSession({});
  session->start();
  EXPECT_TRUE(std::filesystem::exists(sidecarLogURL));
  session->stop();
}

TEST_F(SessionStart, InstallsNoTapWhereThereIsNoInput) {
  VirtualSettings settings;
  settings.microphone.reset();
  makeSession(settings);
  EXPECT_EQ(errorOf([&] { session->start(); }),
            "No microphone input node is available for the Quenlor audio session.");
  EXPECT_EQ(ledger().calls(), (std::vector<std::string>{"makeEngine", "makeQueue", "makeQueue",
                                                        "authorizationStatus", "inputFormat"}));
  session->discardIfUnfinished();
}

TEST_F(SessionStart, IsRefusedButForTheFirstTime) {
  const auto start = [this] { session->start(); };
  const auto stop = [this] { session->stop(); };
  const std::vector<std::pair<std::string, std::function<void()>>> pasts = {
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
    session->discardIfUnfinished();
    expectEverythingReleased();
  }
}

TEST_F(SessionStart, ChangesNothingOnARunningSession) {
  makeSession({});
  session->start();
  clock->advance(100ms);
  const auto calls = ledger().calls();
  EXPECT_EQ(errorOf([&] { session->start(); }), "The Quenlor audio session is already running.");
  EXPECT_EQ(ledger().calls(), calls);
  clock->advance(900ms);
  EXPECT_EQ(session->stop().durationSeconds, 1.0);
  EXPECT_GT(recording().durationSeconds(), 0.97);
}

}  // namespace
}  // namespace quenlor::test
