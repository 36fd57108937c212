// quenlor-record in a terminal, which tmux plays.

#include "tests/recorder/FakeSidecar.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaveFile.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace quenlor::test {

namespace {

const std::string statusLine =
    R"(00:00:0\d  +\d+\.\d .B  L \[=+\|? *\]  -\d+\.\d  R \[=+\|? *\]  -\d+\.\d)";

class TerminalSession : public testing::Test {
 protected:
  ~TerminalSession() override { (void)tmux({"kill-server"}); }

  [[nodiscard]] std::string tmux(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command = {"tmux", "-S", folder / "socket", "-f", "/dev/null"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess child(command, "export TMPDIR='" + folder.path().string() + "'");
    return finish(child).output;
  }
  /// A shell that has little to say, 80 columns wide.
  void SetUp() override {
    if (tmux({"-V"}).empty()) GTEST_SKIP() << "tmux is not installed.";
    (void)tmux({"new-session", "-d", "-x", "80", "-y", "24", "-c", folder.path().string(),
                "env PS1='$ ' sh"});
    ASSERT_TRUE(shows("\\$"));
  }
  void type(const std::string& line) const { (void)tmux({"send-keys", line, "Enter"}); }
  void press(const std::string& key) const { (void)tmux({"send-keys", key}); }

  static std::string record(const std::string& arguments,
                            const std::string& sidecar = QUENLOR_SIDECAR_PATH) {
    return QUENLOR_RECORD_PATH " --sidecar " + sidecar + ' ' + arguments;
  }

  [[nodiscard]] std::string screen() const { return tmux({"capture-pane", "-p"}); }
  /// Waits until the screen shows what is looked for.
  [[nodiscard]] testing::AssertionResult shows(const std::string& expression) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{20};
    const std::regex wanted(expression);
    do {
      if (std::regex_search(screen(), wanted)) return testing::AssertionSuccess();
      std::this_thread::sleep_for(std::chrono::milliseconds{20});
    } while (std::chrono::steady_clock::now() < deadline);
    return testing::AssertionFailure() << "The screen shows:\n" << screen();
  }

  TemporaryFolder folder;
};

TEST_F(TerminalSession, ShowsTheRecordingAndIsLeftAsItWas) {
  type("stty -a > before");
  for (const std::string key : {"q", "C-c"}) {
    type("clear; " + record("--force r.wav"));
    ASSERT_TRUE(shows("Recording to r\\.wav\\. q or Ctrl-C stops\\.\n" + statusLine + "\n"));
    press(key);
    ASSERT_TRUE(shows("stops\\.\nRecorded .* to r\\.wav\n"));
    EXPECT_NO_THROW((void)readWaveFile(folder / "r.wav"));
    type("clear; stty -a | diff - before && echo as it was");
    ASSERT_TRUE(shows("as it was\n\\$"));
  }
}

TEST_F(TerminalSession, IsGivenBackWhileTheRecordingGoesOn) {
  type("stty -a > before; " + record("-f r.wav"));
  ASSERT_TRUE(shows(statusLine));
  press("C-z");
  ASSERT_TRUE(shows("Stopped"));
  type("clear; stty -a | diff - before && echo as it was");
  ASSERT_TRUE(shows("as it was\n\\$"));
  type("clear; stty tostop; bg; echo q");
  ASSERT_TRUE(shows("\nq\n\\$"));
  type("clear; jobs; stty -a | diff - before");
  ASSERT_TRUE(shows("Running"));
  type("fg");
  ASSERT_TRUE(shows(statusLine));
  press("q");
  ASSERT_TRUE(shows("Recorded .* to r\\.wav"));
}

TEST_F(TerminalSession, IsGivenBackToWhoPressesCtrlCTwice) {
  type("stty -a > before; " + record("r.wav", makeSidecar(folder / "sidecar", "ready; sleep 5")));
  ASSERT_TRUE(shows("00:00:00"));
  press("C-c");
  press("C-c");
  type("clear; stty -a | diff - before && echo as it was");
  ASSERT_TRUE(shows("as it was\n\\$"));
}

TEST_F(TerminalSession, IsLeftAloneInTheBackground) {
  type("clear; stty tostop; stty -a > before; " + record("-f -d 1 r.wav &"));
  ASSERT_TRUE(shows("Recording to r\\.wav\\.\n"));
  type("stty -a | diff - before && echo as it was");
  ASSERT_TRUE(shows("as it was\n"));
  ASSERT_TRUE(shows("Recorded .* to r\\.wav\n"));
  EXPECT_FALSE(screen().find("00:00:0") != std::string::npos) << screen();

  type("clear; " + record("-f r.wav &"));
  ASSERT_TRUE(shows("Recording to r\\.wav\\.\n"));
  type("fg");
  ASSERT_TRUE(shows(statusLine));
  press("q");
  ASSERT_TRUE(shows("Recorded .* to r\\.wav\n"));
}

TEST_F(TerminalSession, KeepsNoPiecesOfALineThatWasWider) {
  type("clear; seq 30; " + record("-f r.wav"));
  ASSERT_TRUE(shows(statusLine));
  for (const char* width : {"70", "50", "42", "60", "41"}) {
    (void)tmux({"resize-window", "-x", width});
    ASSERT_TRUE(shows("\n30\nRecording to r.wav. q or Ctrl-C stops\\.\n00:00:0[^\n]*\n*$"));
  }
  press("q");
  ASSERT_TRUE(shows("stops\\.\nRecorded .* to r\\.wav\n\\$"));
}

TEST_F(TerminalSession, GoesOnWhileItsOutputIsStopped) {
  type("clear; " +
       record("-d 2 r.wav", makeSidecar(folder / "sidecar",
                                        "ready; sleep 1; trace 'The sound server is back.'\n"
                                        "read -r stop; date > stopped\n"
                                        "echo '{\"durationSeconds\":2,\"sizeBytes\":44}'")));
  ASSERT_TRUE(shows("00:00:00"));
  press("C-s");
  waitUntil([this] { return std::filesystem::exists(folder / "stopped"); });
  EXPECT_EQ(screen().find("is back"), std::string::npos) << screen();
  press("C-q");
  ASSERT_TRUE(
      shows("stops\\.\n00:00:0\\d  The sound server is back\\.\nRecorded 2\\.00 s .*\n\\$"));
}

TEST_F(TerminalSession, TellsWhatItWaitsForAndThatNothingCame) {
  type("clear; " +
       record("r.wav", makeSidecar(folder / "sidecar",
                                   "trace 'Creating the audio tap session.'; sleep 99")));
  ASSERT_TRUE(shows("^Waiting for the sound server \\.\\.\\.\n"));
  press("C-c");
  ASSERT_TRUE(shows("^quenlor-record: Stopped before the recording began\\.\n\\$"));
}

TEST_F(TerminalSession, ShowsNoticesAboveTheLine) {
  type("clear; " +
       record("r.wav", makeSidecar(folder / "sidecar",
                                   "ready; trace 'The sound server is back.'; read -r stop")));
  ASSERT_TRUE(shows("stops\\.\n00:00:0\\d  The sound server is back\\.\n00:00:0\\d +0\\.0 kB"));
}

}  // namespace

}  // namespace quenlor::test
