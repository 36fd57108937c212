#include "JSONCoding.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"

#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace quenlor {
namespace {

using namespace std::string_literals;

TEST(ControlProtocol, TrimsBlankBytesOnly) {
  const std::vector<std::pair<std::string, std::string>> cases = {{"", ""},
                                                                  {" \t\r\n", ""},
                                                                  {" a b\r\n", "a b"},
                                                                  {"\fa\v", "\fa\v"},
                                                                  {"\xC2\xA0z", "\xC2\xA0z"},
                                                                  {"\0 "s, "\0"s}};
  for (const auto& [frame, trimmed] : cases)
    EXPECT_EQ(SidecarControlProtocol::trimmed(frame), trimmed) << frame;
}

TEST(ControlProtocol, TakesEveryFormOfStop) {
  const std::vector<std::string> frames = {"",
                                           " \t",
                                           "stop",
                                           "STOP",
                                           "sToP",
                                           "  Stop\r",
                                           "\xC2\xA0stop",
                                           "stop\v",
                                           "\fstop",
                                           "\xE3\x80\x80\xC2\x85stop\xE2\x80\xA9",
                                           R"({"command":"stop"})",
                                           R"({"command":"STOP","extra":1})",
                                           " {\"command\" : \"Stop\"}\r"};
  for (const std::string& frame : frames)
    EXPECT_TRUE(SidecarControlProtocol::parseStopFrame(frame)) << frame;
}

TEST(ControlProtocol, RefusesEverythingElse) {
  const std::vector<std::string> frames = {R"({"command":" stop"})",
                                           R"({"command":"halt"})",
                                           R"({"cmd":"stop"})",
                                           R"({"Command":"stop"})",
                                           R"({"command":null})",
                                           R"({"command":["stop"]})",
                                           "stop now",
                                           "s top",
                                           "stopp",
                                           "\"stop\"",
                                           "[\"stop\"]",
                                           "stop\xFF",
                                           "\xE2stop",
                                           "\xC5\xBFtop",
                                           "stop\0"s,
                                           R"({"command":"stop"} x)",
                                           R"({"mode":"mixed","outputPath":"/x","title":"t"})"};
  for (const std::string& frame : frames) {
    try {
      SidecarControlProtocol::parseStopFrame(frame);
      ADD_FAILURE() << "taken for a stop: " << frame;
    } catch (const SidecarRuntimeError& error) {
      EXPECT_EQ(error.errorCase(), SidecarRuntimeError::Case::invalidStopSignal) << frame;
    }
  }
}

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
  const std::string open(100'000, '[');
  const std::vector<std::string> frames = {
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
      "{\"title\":" + open,
      "\"" + std::string(100'000, 'x')};
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
