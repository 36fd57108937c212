#pragma once

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {

/// Gives the server of this test run a command, and returns what is printed.
inline std::string runPactl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "pactl");
  ChildOptions options;
  options.arguments = std::move(arguments);
  ChildProcess pactl("/usr/bin/env", options);
  EXPECT_EQ(pactl.waitForExit(), 0) << pactl.standardError();
  return pactl.standardOutput();
}

}  // namespace quenlor::test
