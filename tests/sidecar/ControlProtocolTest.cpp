#include "JSONCoding.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"

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

TEST(ControlProtocol, TrimsFourBlanksAndRefusesAStartRequestOfBlanksAlone) {
  EXPECT_EQ(SidecarControlProtocol::trimmed(" \t\r\n\v \n\f\n\r\t "), "\v \n\f");
  for (const char* frame : {"", " \t\r\n"})
    EXPECT_THROW(SidecarControlProtocol::decodeStartRequestFrame(frame), SidecarRuntimeError);
  for (const char* frame : {"\v", "\f{}"})
    EXPECT_THROW(SidecarControlProtocol::decodeStartRequestFrame(frame), JSONDecodingError);
}

bool isStop(const std::string& frame) {
  try {
    return SidecarControlProtocol::parseStopFrame(frame);
  } catch (const SidecarRuntimeError&) {
    return false;
  }
}

TEST(ControlProtocol, TakesAStopAmongUnicodeBlanks) {
  for (const std::string blank :
       {"\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\u0085", "\u00A0", "\u1680",
        "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
        "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"})
    EXPECT_TRUE(isStop(blank + "stop") && isStop("stop" + blank + blank)) << blank;
  for (const std::string other : {"\b", "\u001F", "\u0084", "\u180E", "\u200B", "\u2060", "\uFEFF"})
    EXPECT_FALSE(isStop(other + "stop") || isStop("stop" + other)) << other;
  EXPECT_FALSE(isStop("\u017Ftop")) << "a long s, whose upper case is S";
}

/// A lone continuation, a broken and an unfinished sequence, an overlong form, half of a surrogate
/// pair, a number beyond Unicode, and a byte that never occurs.
TEST(ControlProtocol, RefusesMalformedUTF8) {
  for (const std::string bytes :
       {"\x80", "\xC3\x28", "\xE2\x82", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
    EXPECT_FALSE(isStop(bytes + "stop") || isStop("stop" + bytes)) << bytes;
    EXPECT_FALSE(isStop(R"({"command":"stop","more":")" + bytes + R"("})")) << bytes;
    const std::string members = R"(":"","outputPath":"","title":"","mode":"mixed"})";
    EXPECT_THROW(StartRequest::decode(R"({"more)" + bytes + members), JSONDecodingError) << bytes;
  }
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
        R"({"durationSeconds":1,"sizeBytes":-1})", R"({"durationSeconds":1,"sizeBytes":1.5})",
        R"({"durationSeconds":1e999,"sizeBytes":1})"})
    EXPECT_THROW(StopResult::decode(json), JSONDecodingError) << json;
}

/// A double cannot hold them: that matters only where one is asked for.
TEST(ControlProtocol, IgnoresHugeNumbersInMembersThatNobodyReads) {
  const std::string manyDigits(400, '9');
  for (const std::string& number : {"1e999"s, "-1.5E+999"s, "0.1e310"s, manyDigits, "[[2e308]]"s,
                                    R"({"1e999":-3e400,"a":"\"1e999\\"})"s})
    for (const std::string& frame : {R"({"command":"stop","x":)" + number + "}",
                                     "{\"x\": " + number + " ,\"command\":\"stop\"}"})
      EXPECT_TRUE(SidecarControlProtocol::parseStopFrame(frame)) << frame;
  for (const std::string& value :
       {"01e999"s, "+1e999"s, "1.e999"s, ".1e999"s, "1e999.0"s, "1e999x"s, "1e+"s, "1e999 1"s, "-"s,
        "0" + manyDigits, "\"\\\",1e999"s})
    EXPECT_THROW(SidecarControlProtocol::parseStopFrame(R"({"command":"stop","x":)" + value + "}"),
                 SidecarRuntimeError)
        << value;
  EXPECT_THROW(SidecarControlProtocol::parseStopFrame(R"({"command":1e999})"), SidecarRuntimeError);
  EXPECT_EQ(StartRequest::decode(
                R"({"mode":"1e999","outputPath":"\"1e999","title":"-2e308","x":[1e999]})"),
            (StartRequest{"1e999", "\"1e999", "-2e308"}));
}

}  // namespace
}  // namespace quenlor
