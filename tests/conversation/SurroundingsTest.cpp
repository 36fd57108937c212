// What a program has from its parent: standard streams, which may be missing, closed or stuck,
// signals, the file mask and the working folder.

#include "tests/conversation/Conversation.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaveFile.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

using Streams = Conversation;
using Surroundings = Conversation;

// Any of the three may be missing. Whatever is opened instead of them gets nothing of ours: the
// trace file holds only the trace, and the recording, where there is one, only the recording.
TEST_F(Streams, MayBeMissingAtStart) {
  const std::string setUpWithAll = setUp;
  for (unsigned missing = 0; missing < 8; ++missing) {
    SCOPED_TRACE(missing);
    const auto has = [missing](int descriptor) { return (missing >> descriptor & 1) == 0; };
    setUp = setUpWithAll;
    for (const int descriptor : {0, 1, 2})
      if (!has(descriptor)) setUp += "exec " + std::to_string(descriptor) + "<&-\n";
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

// They go to a pipe that keeps writes apart and has room for one of them. It is full at first, and
// the program's end does not wait for room.
TEST_F(Streams, RepliesComeInTwoWritesEachOnceThereIsRoom) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileHandle reader(ends[0]);
  FileHandle writer(ends[1]);
  ASSERT_GT(::fcntl(ends[1], F_SETPIPE_SZ, 1), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_DIRECT | O_NONBLOCK), 0);
  writer.write("full");
  setUp += "exec 1>&" + std::to_string(ends[1]) + "\n";
  ChildProcess child = launch();
  writer = FileHandle();
  child.write(startLine() + "stop\n");
  waitUntil(
      [this] { return readFile(traceFile).find("reached ready state") != std::string::npos; });
  const auto nextWrite = [&] {
    std::array<char, PIPE_BUF> bytes{};
    const ssize_t count = ::read(reader.fileDescriptor(), bytes.data(), bytes.size());
    return std::string(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  };
  EXPECT_EQ(nextWrite(), "full");
  EXPECT_EQ(nextWrite(), R"({"status":"ready"})");
  EXPECT_EQ(nextWrite(), "\n");
  EXPECT_TRUE(nextWrite().ends_with('}'));
  EXPECT_EQ(nextWrite() + nextWrite(), "\n") << "and the end of the output";
  EXPECT_EQ(finish(child).status, 0) << child.standardError();
}

// They go to a pipe that the title alone fills, then to one without a reader.
TEST_F(Streams, ErrorsThatNobodyReadsDoNotStopTheRun) {
  std::string line = startLine();
  line.insert(line.find("Weekly"), 500'000, 'y');
  setUp += "mkfifo pipe; exec 3<>pipe 2>pipe; rm pipe\n";
  for (const char* more : {"", "exec 3<&-\n"}) {
    setUp += more;
    expectRecording(converse(line + "stop\n"), output);
    EXPECT_EQ(converse(line + "halt\n").status, 1);
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
}

// A pipe has room for part of the title, and is read only once the rest was dropped.
TEST_F(Streams, ErrorStartsALineWhereTheLineBeforeItWasCut) {
  std::string line = startLine();
  line.insert(line.find("Weekly"), 100'000, 'y');
  ChildProcess child = launch();
  child.write(line.replace(line.find("mixed"), 5, "other"));
  waitUntil([this] { return readFile(traceFile).find("Decoded") != std::string::npos; });
  EXPECT_EQ(expectFailure(finish(child), ""),
            "Mixed mode is required for Quenlor helper capture. Received: other");
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
  const auto modeOf = [](const fs::path& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
  };
  for (const auto& [mask, fileMode, folderMode] :
       {std::tuple{"0", 0666U, 0777U}, {"027", 0640U, 0750U}, {"077", 0600U, 0700U}}) {
    setUp += std::string("umask ") + mask + "\n";
    expectRecording(recordUntil("stop\n"), output);
    EXPECT_EQ(modeOf(output), fileMode);
    EXPECT_EQ(modeOf(output.parent_path()), folderMode);
    EXPECT_EQ(modeOf(traceFile), 0600U);
    fs::remove_all(output.parent_path());
    fs::remove(traceFile);
  }
}

TEST_F(Surroundings, WorkingFolderMayBeGone) {
  setUp += "mkdir gone; cd gone; rmdir ../gone\n";
  expectRecording(recordUntil("stop\n"), output);
  EXPECT_EQ(expectFailure(converse(startLine("relative.wav") + "stop\n"), ""),
            "Finding the working folder for \"relative.wav\" failed: No such file or directory");
  EXPECT_EQ(filesLeft(), std::set<std::string>{"recording.wav"});
}

TEST_F(Surroundings, MayIncludeDescriptorsOfOthers) {
  setUp += "for each in {3..62}; do eval \"exec $each<&$((each % 3))\"; done\n";
  expectRecording(recordUntil("stop\n"), output);
}

}  // namespace

}  // namespace quenlor::test
