// Standard streams that are missing, closed or stuck, and signals.

#include "tests/conversation/Conversation.h"
#include "tests/support/WaveFile.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace quenlor::test {

namespace {

using Streams = Conversation;

// Any of the three may be missing. Whatever is opened instead of them gets nothing of ours: the
// trace file holds only the trace, and the recording, where there is one, only the recording.
TEST_F(Streams, MayBeMissingAtStart) {
  for (unsigned missing = 0; missing < 8; ++missing) {
    SCOPED_TRACE(missing);
    options.closedDescriptors.clear();
    for (const int descriptor : {0, 1, 2})
      if ((missing >> descriptor & 1) != 0) options.closedDescriptors.insert(descriptor);
    const auto has = [&](int descriptor) {
      return !options.closedDescriptors.contains(descriptor);
    };
    const Outcome run = converse(startLine() + "stop\n");
    if (has(0) && has(1)) {
      expectRecording(run, output);
    } else {
      EXPECT_EQ(run.status, 1);
      EXPECT_EQ(run.output, "");
      EXPECT_EQ(filesLeft(), std::set<std::string>{});
      const std::string reason = has(0) ? "Writing the reply to standard output failed: "
                                        : "The helper audio sidecar could not read stdin: EBADF";
      EXPECT_NE((has(2) ? run.errors : readFile(traceFile)).find(reason), std::string::npos);
    }
    if (!has(2)) {
      EXPECT_EQ(run.errors, "");
    }
    for (const std::string& line : linesOf(readFile(traceFile)))
      EXPECT_TRUE(line.starts_with(traceTag)) << line;
    std::filesystem::remove(output);
    std::filesystem::remove(traceFile);
  }
}

TEST_F(Streams, OthersAreInheritedAndLeftAlone) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  std::vector<int> copies(60);
  for (int& copy : copies) copy = fcntl(pipe[1], F_DUPFD, 3);
  expectRecording(recordUntil("stop\n"), output);
  for (const int descriptor : copies) ::close(descriptor);
  ::close(pipe[1]);
  char byte = 0;
  EXPECT_EQ(::read(pipe[0], &byte, 1), 0);
  ::close(pipe[0]);
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
  for (const ErrorPipe pipe : {ErrorPipe::isFull, ErrorPipe::isBroken}) {
    options.errorPipe = pipe;
    expectRecording(recordUntil("stop\n"), output);
    EXPECT_EQ(recordUntil("halt\n").status, 1);
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
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
