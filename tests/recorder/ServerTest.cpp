// quenlor-record next to a sound server of its own, which dies.

#include "tests/recorder/RecorderRun.h"
#include "tests/support/WaveFile.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <string>

namespace quenlor::test {

namespace {

using ServerDeath = RecorderRun;

TEST_F(ServerDeath, IsToldAsItHappens) {
  ChildProcess child = record({});
  awaitReady(child);
  ASSERT_EQ(::kill(std::atoi(std::getenv("PRIVATE_SERVER_PID")), SIGKILL), 0);
  static const std::regex notice(
      R"(00:00:\d\d  The sound server is gone; silence is recorded until it is back\. .+)");
  bool isTold = false;
  while (!isTold) {
    const std::optional<std::string> line = child.readLine();
    ASSERT_TRUE(line) << child.standardOutput() << child.standardError();
    isTold = std::regex_match(*line, notice);
  }
  child.closeInput();
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_NO_THROW((void)readWaveFile(recording));
}

}  // namespace

}  // namespace quenlor::test
