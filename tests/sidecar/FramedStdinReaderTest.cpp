#include "FramedStdinReader.h"

#include <array>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace quenlor {
namespace {

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
