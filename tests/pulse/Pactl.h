#pragma once

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace quenlor::test {

/// Gives the server of this test run a command, and returns what is printed.
inline std::string runPactl(std::vector<std::string> command) {
  command.insert(command.begin(), "pactl");
  ChildProcess pactl(command);
  EXPECT_EQ(pactl.waitForExit(), 0) << pactl.standardError();
  return pactl.standardOutput();
}

}  // namespace quenlor::test
