#include "recorder/Options.h"

#include <gtest/gtest.h>

namespace quenlor::recorder {

namespace {

TEST(Duration, IsReadInEveryForm) {
  for (const auto& [text, seconds] : {std::pair{"90", 90.0},
                                      {"0.5", 0.5},
                                      {".5", 0.5},
                                      {"5.", 5.0},
                                      {"1:30", 90.0},
                                      {"90:00", 5400.0},
                                      {"0:00.25", 0.25},
                                      {"1:02:03.5", 3723.5},
                                      {"100:00:00", 360'000.0}})
    EXPECT_EQ(parseDuration(text), seconds) << text;
  for (const char* text :
       {"",       "0",       "0:00",   "-1",      "+1",         "1e3", "nan", "inf",
        "x",      "1s",      " 1",     "1 ",      ".",          ":30", "1:",  "1:60",
        "1:2:60", "1:60:00", "1.5:00", "1:2:3:4", "1234567890", "1:-1"})
    EXPECT_EQ(parseDuration(text), std::nullopt) << text;
}

}  // namespace

}  // namespace quenlor::recorder
