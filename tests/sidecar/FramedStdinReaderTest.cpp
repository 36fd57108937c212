#include "FramedStdinReader.h"
#include "SidecarRuntimeError.h"

#include <array>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quenlor {
namespace {

class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
  ~Pipe() {
    ::close(ends[0]);
    closeInput();
  }
  int readingEnd() const { return ends[0]; }
  void write(const std::string& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
      const ssize_t count = ::write(ends[1], bytes.data() + sent, bytes.size() - sent);
      ASSERT_GT(count, 0);
      sent += static_cast<std::size_t>(count);
    }
  }
  void closeInput() {
    if (ends[1] >= 0) ::close(ends[1]);
    ends[1] = -1;
  }

 private:
  std::array<int, 2> ends{-1, -1};
};

TEST(FramedStdinReader, CutsInputIntoFrames) {
  struct Case {
    std::string input;
    std::vector<std::string> frames;
  };
  const std::vector<Case> cases = {
      {"", {}},
      {"\n \r\n\t\n\r", {}},
      {"start\nstop\n", {"start", "stop"}},
      {"\n\n a \r\n \nb", {" a \r", "b"}},
      {"stop ", {"stop "}},
      {"\f\n", {"\f"}},
      {std::string("a\0b\nc", 5), {std::string("a\0b", 3), "c"}},
      {std::string(20'000, 'x') + "\n" + std::string(4096, 'y') + "\nz",
       {std::string(20'000, 'x'), std::string(4096, 'y'), "z"}}};
  for (const auto& [input, frames] : cases) {
    Pipe pipe;
    pipe.write(input);
    pipe.closeInput();
    FramedStdinReader reader(pipe.readingEnd());
    for (const std::string& frame : frames) EXPECT_EQ(reader.readFrame(), frame);
    EXPECT_EQ(reader.readFrame(), std::nullopt);
    EXPECT_EQ(reader.readFrame(), std::nullopt) << "the end stays the end";
  }
}

TEST(FramedStdinReader, GivesALineWithoutWaitingForMore) {
  Pipe pipe;
  pipe.write("first\nsecond\nhal");
  FramedStdinReader reader(pipe.readingEnd());
  EXPECT_EQ(reader.readFrame(), "first");
  EXPECT_EQ(reader.readFrame(), "second");
  pipe.write("f\n");
  EXPECT_EQ(reader.readFrame(), "half");
}

TEST(FramedStdinReader, ReportsReadErrorsByName) {
  FramedStdinReader reader(-1);
  try {
    reader.readFrame();
    FAIL() << "no error";
  } catch (const SidecarRuntimeError& error) {
    EXPECT_EQ(error.errorCase(), SidecarRuntimeError::Case::stdinReadFailed);
    EXPECT_EQ(error.payload(), "EBADF");
  }
}

TEST(FramedStdinReader, BoundsTheLengthOfALine) {
  for (const bool ended : {false, true}) {
    Pipe pipe;
    std::thread parent([&] {
      pipe.write(std::string(FramedStdinReader::maximumFrameLength, 'x') + (ended ? "\n" : "x"));
    });
    FramedStdinReader reader(pipe.readingEnd());
    if (ended)
      EXPECT_EQ(reader.readFrame()->size(), FramedStdinReader::maximumFrameLength);
    else
      EXPECT_THROW(reader.readFrame(), SidecarRuntimeError);
    parent.join();
  }
}

std::atomic<int> interruptions{0};

TEST(FramedStdinReader, ReadsOnAfterAnInterruption) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++interruptions; };  // and no SA_RESTART
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  Pipe pipe;
  const pthread_t readingThread = ::pthread_self();
  std::thread parent([&] {
    // Interrupts until at least three signals have come in, then sends the line.
    while (interruptions < 3) {
      ::pthread_kill(readingThread, SIGUSR1);
      std::this_thread::yield();
    }
    pipe.write("stop\n");
  });
  FramedStdinReader reader(pipe.readingEnd());
  EXPECT_EQ(reader.readFrame(), "stop");
  parent.join();
  ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace quenlor
