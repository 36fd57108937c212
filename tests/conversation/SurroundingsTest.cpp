// What a program has from its parent: standard streams, which may be missing, closed or stuck,
// signals, the file mask and the working folder.

#include "tests/conversation/Conversation.h"
#include "tests/support/WaveFile.h"

#include <csignal>
#include <string>
#include <sys/stat.h>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

using Streams = Conversation;
using Surroundings = Conversation;

// Any of the three may be missing. Whatever is opened instead of them gets nothing of ours: the
// trace file holds only the trace, and the recording, where there is one, only the recording.
TEST_F(Streams, MayBeMissingAtStart) {
  for (unsigned missing = 0; missing < 8; ++missing) {
    SCOPED_TRACE(missing);
    const auto has = [missing](int descriptor) { return (missing >> descriptor & 1) == 0; };
    options.closedDescriptors.clear();
    for (const int descriptor : {0, 1, 2})
      if (!has(descriptor)) options.closedDescriptors.insert(descriptor);
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
    EXPECT_TRUE(has(2) || run.errors.empty());
    for (const std::string& line : linesOf(readFile(traceFile)))
      EXPECT_TRUE(line.starts_with(traceTag)) << line;
    fs::remove(output);
    fs::remove(traceFile);
  }
}

TEST_F(Streams, OutputClosedByTheReaderKeepsOnlyACompleteFile) {
  for (const bool ready : {false, true}) {
    ChildProcess child = launch();
    if (ready) awaitReady(child);
    child.closeOutput();
    child.write(ready ? "stop\n" : startLine());
    expectFailure(finish(child), ready ? readyLine : "");
    EXPECT_EQ(fs::exists(output), ready);
  }
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
    EXPECT_TRUE(fs::exists(output));
  }
}

TEST_F(Surroundings, MaskDecidesOnTheRecordingButNotOnTheTrace) {
  output = folder / "new/recording.wav";
  for (const mode_t mask : {0U, 027U}) {
    const mode_t before = umask(mask);
    const Outcome run = recordUntil("stop\n");
    umask(before);
    expectRecording(run, output);
    const auto modeOf = [](const fs::path& path) {
      return static_cast<mode_t>(fs::status(path).permissions());
    };
    EXPECT_EQ(modeOf(output), 0666U & ~mask);
    EXPECT_EQ(modeOf(output.parent_path()), 0777U & ~mask);
    EXPECT_EQ(modeOf(traceFile), 0600U);
    fs::remove_all(output.parent_path());
    fs::remove(traceFile);
  }
}

TEST_F(Surroundings, WorkingFolderMayBeGone) {
  const fs::path gone = folder / "gone";
  const fs::path before = fs::current_path();
  fs::create_directory(gone);
  fs::current_path(gone);
  fs::remove(gone);
  const Outcome absolute = recordUntil("stop\n");
  const Outcome relative = converse(startLine("relative.wav") + "stop\n");
  fs::current_path(before);

  expectRecording(absolute, output);
  EXPECT_EQ(expectFailure(relative, ""),
            "Finding the working folder for \"relative.wav\" failed: No such file or directory");
  EXPECT_EQ(filesLeft(), std::set<std::string>{"recording.wav"});
}

}  // namespace

}  // namespace quenlor::test
