// What ends a recording, and what ends it without a file.

#include "tests/conversation/Conversation.h"

#include <string>

namespace quenlor::test {

namespace {

using Stop = Conversation;

TEST_F(Stop, EndsTheRecording) {
  for (const std::string_view line : {
           "stop\n",
           "STOP\n",
           "sToP\n",
           "  Stop\r\n",
           "\xC2\xA0stop\n",
           "stop\v\n",
           "\xE2\x80\xA8stop\xE3\x80\x80\n",
           "\n \t\r\nstop\n",
           "{\"command\":\"stop\"}\n",
           "{\"command\":\"Stop\"}\n",
           " {\"extra\":1,\"command\":\"STOP\"} \r\n",
           "stop\nhalt\n",
       }) {
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
  for (const std::string& line : {
           std::string("{\"command\":\" stop\"}\n"),
           std::string("{\"command\":\"halt\"}\n"),
           std::string("{\"command\":null}\n"),
           std::string("{\"cmd\":\"stop\"}\n"),
           std::string("{\"command\":\"stop\"\n"),
           std::string("[{\"command\":\"stop\"}]\n"),
           std::string("stop now\n"),
           std::string("stop.\n"),
           std::string("\"stop\"\n"),
           std::string("stop\0\n", 6),
           std::string("{\"command\":\"stop\"}\0x\n", 21),
           std::string("\xC5\xBFtop\n"),  // whose upper case is STOP
           std::string("stopp\n"),
           startLine(),
           std::string(100000, '[') + "\n",
       }) {
    SCOPED_TRACE(line.substr(0, 80));
    EXPECT_EQ(expectFailure(recordUntil(line), readyLine),
              "Stop signal payload was not understood.");
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
}

TEST_F(Stop, OfBytesThatAreNotUTF8LeavesNoFile) {
  for (const std::string& bytes : malformedUTF8) {
    for (const std::string& line :
         {bytes + "stop\n", "stop" + bytes + "\n", "{\"command\":\"stop" + bytes + "\"}\n"}) {
      EXPECT_EQ(expectFailure(recordUntil(line), readyLine),
                "Stop signal payload was not understood.");
      EXPECT_EQ(filesLeft(), std::set<std::string>{});
    }
  }
}

TEST_F(Stop, EndlessLineLeavesNoFile) {
  EXPECT_TRUE(expectFailure(recordUntil(std::string((1 << 20) + 4096, ' ')), readyLine)
                  .starts_with("The helper audio sidecar could not read stdin: "));
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

}  // namespace

}  // namespace quenlor::test
