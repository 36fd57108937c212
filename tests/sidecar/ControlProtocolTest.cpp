#include "JSONCoding.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

using namespace std::string_literals;

TEST(ControlProtocol, DecodesStartRequestsAsTheyAre) {
  struct Case {
    std::string frame;
    StartRequest request;
  };
  const std::vector<Case> cases = {
      {R"({"mode":"mixed","outputPath":"/tmp/a.wav","title":"T"})", {"mixed", "/tmp/a.wav", "T"}},
      {"\t{ \"title\" : \"\", \"x\":[1,{}], \"outputPath\":\" p \", \"mode\":\"MIXED\" }\r",
       {"MIXED", " p ", ""}},
      {R"({"mode":"a","mode":"b","outputPath":"\u0000\n","title":"\u00e9\ud83d\ude00"})",
       {"b", "\0\n"s, "\xC3\xA9\xF0\x9F\x98\x80"}}};
  for (const auto& [frame, request] : cases) {
    EXPECT_EQ(SidecarControlProtocol::decodeStartRequestFrame(frame), request) << frame;
    EXPECT_EQ(StartRequest::decode(request.encode()), request);
  }
}

TEST(ControlProtocol, RefusesStartRequestsInOneLine) {
  const std::string whole = R"({"mode":"mixed","outputPath":"/x","title":"t"})";
  const std::vector<std::string> frames = {
      whole + "\0zzz"s,
      whole + "\0"s,
      R"({"mode":"mixed","outputPath":"/x"})",
      R"({"mode":"mixed","outputPath":"/x","title":null})",
      R"({"mode":"mixed","outputPath":"/x","title":5})",
      R"({"mode":["mixed"],"outputPath":"/x","title":"t"})",
      R"({"Mode":"mixed","outputPath":"/x","title":"t"})",
      R"([{"mode":"mixed","outputPath":"/x","title":"t"}])",
      R"("mixed")",
      "mixed\nmixed",
      "{\"mode\":\"mixed\",\"outputPath\":\"/x\",\"title\":\"\xFF\n\"}",
      R"({"mode":"mixed","outputPath":"/x","title":"\ud800"})",
      R"({"mode":"mixed","outputPath":"/x","title":"t"} trailing)",
      R"({"mode":"mixed","outputPath":"/x","title":"t","n":1e999})",
      R"({"title":)" + std::string(100'000, '['),
      '"' + std::string(100'000, 'x')};
  for (const std::string& frame : frames) {
    try {
      SidecarControlProtocol::decodeStartRequestFrame(frame);
      ADD_FAILURE() << "decoded: " << frame.substr(0, 80);
    } catch (const JSONDecodingError& error) {
      const std::string text = error.what();
      EXPECT_GT(text.size(), 10U);
      EXPECT_LT(text.size(), 300U) << "bounded, whatever the parent sent";
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

TEST(ControlProtocol, WritesRepliesCompactly) {
  EXPECT_EQ(ReadyFrame{.status = "ready"}.encode(), R"({"status":"ready"})");
  EXPECT_EQ(ReadyFrame::decode(R"({"status":"ready"})").status, "ready");
  EXPECT_EQ((StopResult{12.5, 2'400'044}.encode()),
            R"({"durationSeconds":12.5,"sizeBytes":2400044})");
  const std::vector<StopResult> results = {
      {0.0, 44}, {0.1 + 0.2, 1}, {1e300, std::numeric_limits<std::uint64_t>::max()}};
  for (const StopResult& result : results)
    EXPECT_EQ(StopResult::decode(result.encode()), result) << result.encode();
}

TEST(ControlProtocol, RefusesToWriteWhatJSONCannotHold) {
  EXPECT_THROW((StopResult{std::numeric_limits<double>::quiet_NaN(), 44}.encode()),
               JSONEncodingError);
  EXPECT_THROW((StopResult{std::numeric_limits<double>::infinity(), 44}.encode()),
               JSONEncodingError);
  EXPECT_THROW(ReadyFrame{.status = "\xFF"}.encode(), JSONEncodingError);
  for (const char* json :
       {R"({"durationSeconds":1.5})", R"({"durationSeconds":"1","sizeBytes":1})",
        R"({"durationSeconds":1,"sizeBytes":-1})", R"({"durationSeconds":1,"sizeBytes":1.5})"})
    EXPECT_THROW(StopResult::decode(json), JSONDecodingError) << json;
}

}  // namespace
}  // namespace quenlor
