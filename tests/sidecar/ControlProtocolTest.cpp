#include "JSONCoding.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

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

/// Whatever the parent sent: errors quote it, and become a line.
TEST(ControlProtocol, RefusesStartRequestsInOneShortLine) {
  const std::string whole = R"({"mode":"mixed","outputPath":"/x","title":"t"})";
  for (const std::string& frame :
       {whole + "\0"s, "mixed\nmixed"s, "{\"title\":\"\xFF\n\"}"s, R"({"n":1e999})"s,
        R"({"title":)" + std::string(100'000, '['), '"' + std::string(100'000, 'x')}) {
    try {
      SidecarControlProtocol::decodeStartRequestFrame(frame);
      ADD_FAILURE() << "decoded: " << frame.substr(0, 80);
    } catch (const JSONDecodingError& error) {
      const std::string text = error.what();
      EXPECT_GT(text.size(), 10U);
      EXPECT_LT(text.size(), 300U);
      for (const char c : text) EXPECT_TRUE(c >= 0x20 && c < 0x7F) << text;
    }
  }
  EXPECT_THROW(SidecarControlProtocol::decodeStartRequestFrame(" \r"), SidecarRuntimeError);
}

TEST(ControlProtocol, BoundsTheNesting) {
  const auto decode = [](std::size_t levels) {
    std::string frame = R"({"mode":"m","outputPath":"p","title":"t","unknown":)";
    frame.append(levels, '[').append(levels, ']').append(1, '}');
    return SidecarControlProtocol::decodeStartRequestFrame(frame);
  };
  EXPECT_EQ(decode(127).title, "t");
  EXPECT_THROW(decode(128), JSONDecodingError);
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
