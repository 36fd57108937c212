#include "JSONCoding.h"
#include "SidecarControlProtocol.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace quenlor {
namespace {

using namespace std::string_literals;

TEST(ControlProtocol, DecodesStartRequestsAsTheyAre) {
  const StartRequest request{"MIXED", "\0\n"s, "\xC3\xA9\xF0\x9F\x98\x80"};
  EXPECT_EQ(
      SidecarControlProtocol::decodeStartRequestFrame(
          "\t{\"title\":\"\\u00e9\\ud83d\\ude00\", \"x\":[1,{}], \"outputPath\":\"\\u0000\\n\","
          "\"mode\":\"a\",\"mode\":\"MIXED\" }\r"),
      request);
  EXPECT_EQ(StartRequest::decode(request.encode()), request);
}

TEST(ControlProtocol, WritesAndReadsReplies) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(ReadyFrame::decode(ReadyFrame{.status = "ready"}.encode()).status, "ready");
  EXPECT_EQ((StopResult{12.5, 2'400'044}.encode()),
            R"({"durationSeconds":12.5,"sizeBytes":2400044})");
  for (const StopResult& result : {StopResult{0.1 + 0.2, 1}, StopResult{1e300, ~std::uint64_t{0}}})
    EXPECT_EQ(StopResult::decode(result.encode()), result) << result.encode();

  EXPECT_THROW((StopResult{Limits::quiet_NaN(), 44}.encode()), JSONEncodingError);
  EXPECT_THROW((StopResult{Limits::infinity(), 44}.encode()), JSONEncodingError);
  EXPECT_THROW(ReadyFrame{.status = "\xFF"}.encode(), JSONEncodingError);
  for (const char* json :
       {R"({"durationSeconds":1.5})", R"({"durationSeconds":"1","sizeBytes":1})",
        R"({"durationSeconds":1,"sizeBytes":-1})", R"({"durationSeconds":1,"sizeBytes":1.5})"})
    EXPECT_THROW(StopResult::decode(json), JSONDecodingError) << json;
}

}  // namespace
}  // namespace quenlor
