// Standard streams that are missing, closed or stuck, and signals.

#include "tests/conversation/Conversation.h"
#include "tests/support/WaveFile.h"

#include <csignal>
#include <string>

namespace quenlor::test {

namespace {

using Streams = Conversation;

TEST_F(Streams, InputMissingAtStartIsAReadError) {
  options.closedDescriptors = {0};
  ChildProcess child = launch();
  EXPECT_EQ(expectFailure(finish(child), ""),
            "The helper audio sidecar could not read stdin: EBADF");
}

TEST_F(Streams, OutputMissingAtStartLeavesNoFile) {
  options.closedDescriptors = {1};
  expectFailure(converse(startLine() + "stop\n"), "");
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

TEST_F(Streams, ErrorsMissingAtStartChangeNothing) {
  options.closedDescriptors = {2};
  expectRecording(recordUntil("stop\n"), output);
  for (const std::string& line : linesOf(readFile(traceFile))) {
    EXPECT_TRUE(line.starts_with(traceTag)) << line;
  }
}

TEST_F(Streams, AllMissingAtStartIsAnError) {
  options.closedDescriptors = {0, 1, 2};
  ChildProcess child = launch();
  EXPECT_EQ(child.waitForExit(), 1);
  EXPECT_EQ(linesOf(readFile(traceFile)).size(), 1U);
}

TEST_F(Streams, OutputClosedBeforeTheReadyLineLeavesNoFile) {
  ChildProcess child = launch();
  child.closeOutput();
  child.write(startLine());
  expectFailure(finish(child), "");
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

TEST_F(Streams, OutputClosedBeforeTheResultLineKeepsTheFile) {
  ChildProcess child = launch();
  awaitReady(child);
  child.closeOutput();
  child.write("stop\n");
  expectFailure(finish(child), readyLine);
  EXPECT_NO_THROW((void)readWaveFile(output));
}

TEST_F(Streams, ErrorsThatNobodyReadsDoNotStopTheRun) {
  options.errorPipe = ErrorPipe::isFull;
  expectRecording(recordUntil("stop\n"), output);
}

TEST_F(Streams, LongTitleThatNobodyReadsDoesNotStopTheRun) {
  options.errorPipe = ErrorPipe::isUnread;
  std::string line = startLine();
  line.insert(line.find("Weekly"), 500'000, 'y');
  expectRecording(converse(line + "stop\n"), output);
}

TEST_F(Streams, TerminationEndsTheRunAtOnce) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    ChildProcess child = launch();
    awaitReady(child);
    child.sendSignal(number);
    const Outcome run = finish(child);
    EXPECT_EQ(run.status, 128 + number);
    EXPECT_EQ(run.output, readyLine);
    EXPECT_TRUE(std::filesystem::exists(output));
  }
}

}  // namespace

}  // namespace quenlor::test
