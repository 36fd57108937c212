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
#include <thread>
#include <unistd.h>

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

TEST(FramedStdinReader, GivesALineWithoutWaitingForMore) {
  Pipe pipe;
  pipe.write("first\nsecond\nhal");
  FramedStdinReader reader(pipe.readingEnd());
  EXPECT_EQ(reader.readFrame(), "first");
  EXPECT_EQ(reader.readFrame(), "second");
  pipe.write("f\n");
  EXPECT_EQ(reader.readFrame(), "half");
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
