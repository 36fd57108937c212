// quenlor-record in a terminal, which tmux plays.

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <chrono>
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

  /// Waits until the screen shows what is looked for.
  [[nodiscard]] testing::AssertionResult shows(const std::string& expression) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{20};
    const std::regex wanted(expression);
    std::string screen;
    do {
      screen = tmux({"capture-pane", "-p"});
      if (std::regex_search(screen, wanted)) return testing::AssertionSuccess();
      std::this_thread::sleep_for(std::chrono::milliseconds{20});
    } while (std::chrono::steady_clock::now() < deadline);
    return testing::AssertionFailure() << "The screen shows:\n" << screen;
  }

  TemporaryFolder folder;
};

TEST_F(TerminalSession, ShowsTheRecordingAndIsLeftAsItWas) {
  const std::string record =
      "clear; " QUENLOR_RECORD_PATH " --sidecar " QUENLOR_SIDECAR_PATH " --force r.wav";
  type("stty -a > before");
  for (const std::string key : {"q", "C-c"}) {
    type(record);
    ASSERT_TRUE(shows("Recording to r\\.wav\\. q or Ctrl-C stops\\.\n" + statusLine + "\n"));
    press(key);
    ASSERT_TRUE(shows("stops\\.\nRecorded .* to r\\.wav\n"));
    EXPECT_NO_THROW((void)readWaveFile(folder / "r.wav"));
    type("clear; stty -a | diff - before && echo as it was");
    ASSERT_TRUE(shows("as it was\n\\$"));
  }
}

TEST_F(TerminalSession, IsGivenBackWhileSuspended) {
  type("stty -a > before; " QUENLOR_RECORD_PATH " --sidecar " QUENLOR_SIDECAR_PATH " r.wav");
  ASSERT_TRUE(shows(statusLine));
  press("C-z");
  ASSERT_TRUE(shows("Stopped"));
  type("clear; stty -a | diff - before && echo as it was");
  ASSERT_TRUE(shows("as it was\n\\$"));
  type("fg");
  ASSERT_TRUE(shows(statusLine));
  press("q");
  ASSERT_TRUE(shows("Recorded .* to r\\.wav"));
}

}  // namespace

}  // namespace quenlor::test
