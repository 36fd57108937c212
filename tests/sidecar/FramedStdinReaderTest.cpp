#include "FramedStdinReader.h"
#include "SidecarRuntimeError.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace quenlor {
namespace {

TEST(FramedStdinReader, BoundsTheLengthOfALine) {
  for (const bool fits : {true, false}) {
    std::FILE* const file = std::tmpfile();
    const std::string line(FramedStdinReader::maximumFrameLength + (fits ? 0 : 1), 'x');
    std::fputs((line + "\n").c_str(), file);
    std::rewind(file);
    FramedStdinReader reader(::fileno(file));
    if (fits)
      EXPECT_EQ(reader.readFrame(), line);
    else
      EXPECT_THROW(reader.readFrame(), SidecarRuntimeError);
    std::fclose(file);
  }
}

std::atomic<int> interruptions{0};

TEST(FramedStdinReader, ReadsOnAfterAnInterruption) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++interruptions; };  // and no SA_RESTART
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  std::thread parent([&, readingThread = ::pthread_self()] {
    while (interruptions < 3) {
      ::pthread_kill(readingThread, SIGUSR1);
      std::this_thread::yield();
    }
    EXPECT_EQ(::write(pipe[1], "stop\nmore", 9), 9);
  });
  FramedStdinReader reader(pipe[0]);
  EXPECT_EQ(reader.readFrame(), "stop") << "without waiting for more";
  parent.join();
  for (const int end : pipe) ::close(end);
  ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace quenlor
