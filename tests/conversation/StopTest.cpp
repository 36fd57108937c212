// What ends a recording, and what ends it without a file.

#include "tests/conversation/Conversation.h"

#include <string>

namespace quenlor::test {

namespace {

using namespace std::string_literals;

using Stop = Conversation;

TEST_F(Stop, EndsTheRecording) {
  for (const std::string_view line : {"stop\n", "  sToP\r\n", "\xC2\xA0stop\v\n", "\n \t\r\nstop\n",
                                      " {\"extra\":1,\"command\":\"STOP\"} \r\n", "stop\nhalt\n"}) {
    SCOPED_TRACE(line);
    expectRecording(recordUntil(line), output);
    std::filesystem::remove(output);
  }
}

TEST_F(Stop, MayBeTheEndOfInput) {
  for (const std::string_view rest : {"", "\n \r\n", " \t", "stop", "stop "}) {
    SCOPED_TRACE(rest);
    ChildProcess child = launch();
    awaitReady(child);
    child.write(rest);
    child.closeInput();
    expectRecording(finish(child), output);
    std::filesystem::remove(output);
  }
}

TEST_F(Stop, MayComeWithTheStart) {
  ChildProcess child = launch();
  child.write(startLine() + "\r\nstop\nstop\n{}\n");
  expectRecording(finish(child), output);
}

TEST_F(Stop, RefusedLeavesNoFile) {
  for (const std::string& line :
       {R"({"command":"stop")"s, "stop now"s, "stop."s, "stopp"s, "stop\0"s,
        "{\"command\":\"stop\"}\0x"s, startLine(), std::string(100000, '[')}) {
    SCOPED_TRACE(line.substr(0, 80));
    EXPECT_EQ(expectFailure(recordUntil(line + "\n"), readyLine),
              "Stop signal payload was not understood.");
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
}

TEST_F(Stop, EndlessLineLeavesNoFile) {
  EXPECT_TRUE(expectFailure(recordUntil(std::string((1 << 20) + 4096, ' ')), readyLine)
                  .starts_with("The helper audio sidecar could not read stdin: "));
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

}  // namespace

}  // namespace quenlor::test
