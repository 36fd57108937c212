#include "FailingCalls.h"
#include "FileHandle.h"
#include "FramedStdinReader.h"

#include <array>
#include <gtest/gtest.h>
#include <unistd.h>

namespace quenlor {
namespace {

TEST(FramedStdinReader, ReadsOnAfterAnInterruption) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileHandle readEnd(ends[0]);
  FileHandle writeEnd(ends[1]);
  writeEnd.write("stop\nmore");
  test::interruptions = 3;
  EXPECT_EQ(FramedStdinReader(ends[0]).readFrame(), "stop") << "without waiting for more";
  EXPECT_EQ(test::interruptions, 0);
}

}  // namespace
}  // namespace quenlor
