// Memory that ends: every allocation of the control thread fails in turn, from before main() to the
// end.

#include "tests/conversation/Conversation.h"
#include "tests/support/WaveFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

namespace quenlor::test {
namespace {

class AllocationSweep : public Conversation {
 protected:
  Outcome runWithFailure(std::size_t allocation) {
    setUp = "export QUENLOR_FAILING_ALLOCATION=" + std::to_string(allocation) + "\n" + setUpForAll;
    return converse(input);
  }

  const std::string setUpForAll = setUp;
  std::string input = startLine() + "stop\n";

  /// The control thread also runs work that queues leave to it, now more, now less.
  std::size_t mostAllocations() {
    std::size_t most = 0;
    for (int run = 0; run < 3; ++run)
      most = std::max(most, std::stoul(linesOf(runWithFailure(0).errors).back()));
    return most;
  }
};

TEST_F(AllocationSweep, EndsTheRunWithAMessageAndWithoutAFile) {
  const std::size_t count = mostAllocations();
  std::size_t errors = 0;
  for (std::size_t allocation = 1; allocation <= count; ++allocation) {
    SCOPED_TRACE("allocation " + std::to_string(allocation));
    const Outcome run = runWithFailure(allocation);
    if (run.status == 0) {
      expectRecording(run, output);
    } else {
      ++errors;
      EXPECT_NE(expectFailure(run, run.output).find("bad_alloc"), std::string::npos);
      // Behind the last allocations only the result line comes: the file is complete by then.
      if (std::filesystem::exists(output)) {
        EXPECT_NO_THROW((void)readWaveFile(output));
      }
    }
    std::filesystem::remove(output);
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
  EXPECT_GT(errors, count / 4) << "only the trace's allocations can be done without";
  std::printf("count allocations-failed %zu\n", count);
}

TEST_F(AllocationSweep, OfABrokenRequestEndsWithAMessageToo) {
  input = R"({"mode":[{"members":["of","members"]},2],"title":"a title beyond the short ones)"
          "\n";
  const std::size_t count = mostAllocations();
  ASSERT_GT(count, 0U);
  for (std::size_t allocation = 1; allocation <= count; ++allocation) {
    SCOPED_TRACE("allocation " + std::to_string(allocation));
    expectFailure(runWithFailure(allocation), "");
  }
  std::printf("count allocations-failed-in-a-broken-request %zu\n", count);
}

}  // namespace
}  // namespace quenlor::test
