// The line that a recording is watched on.

#include "recorder/StatusLine.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace quenlor::recorder {

namespace {

using std::chrono::seconds;

const StereoLevel silent;
const StereoLevel loud{{{.peak = 0.25, .heldPeak = 0.5, .clipped = false},
                        {.peak = 1, .heldPeak = 1, .clipped = true}}};

TEST(StatusLine, ShowsWhatFitsItsWidth) {
  struct Case {
    RecordingStatus status;
    std::string line;
  };
  for (const Case& c : {
           Case{{seconds(0), 44, silent}, "00:00:00"},
           Case{{seconds(0), 44, silent}, "00:00:00    0.0 kB "},
           Case{{seconds(83), 15'936'044, loud}, "00:01:23   15.9 MB            "},
           Case{{seconds(83), 15'936'044, loud}, "00:01:23   15.9 MB  L [==| ]  R [==|!] "},
           Case{{seconds(3599), 999'960, loud},
                "00:59:59    1.0 MB  L [=============|   ]  -6.0  R [===============|!]   0.0"},
           Case{{seconds(360'000), 69'120'000'044, silent},
                "100:00:00   69.1 GB  L [         ]  -inf  R [         ]  -inf"},
       })
    EXPECT_EQ(renderStatusLine(c.status, c.line.size()), c.line);
}

TEST(StatusLine, HasExactlyItsWidth) {
  for (const StereoLevel& levels : {silent, loud})
    for (std::size_t width = 0; width < 300; ++width) {
      const std::string line = renderStatusLine({seconds(1), 44, levels}, width);
      ASSERT_EQ(line.size(), width);
      ASSERT_TRUE(std::ranges::all_of(line, [](char c) { return c >= ' ' && c <= '~'; })) << line;
    }
}

}  // namespace

}  // namespace quenlor::recorder
