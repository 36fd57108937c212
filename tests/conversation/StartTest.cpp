// What a start line may look like, and what is refused before anything is touched.

#include "tests/conversation/Conversation.h"

#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {

namespace {

using namespace std::string_literals;

using Start = Conversation;

// One start line with one member replaced by `member`, which may be empty.
std::string withMember(const std::string& line, const std::string& original,
                       const std::string& member) {
  const std::size_t at = line.find(original);
  return line.substr(0, at) + member + line.substr(at + original.size());
}

TEST_F(Start, RefusesAnythingButARequest) {
  const std::string line = startLine();
  const std::string path = "\"outputPath\":\"" + output.string() + "\"";
  const std::string title = "\"title\":\"Weekly\"";
  const std::string tooDeep = std::string(128, '[') + std::string(128, ']');
  std::string objects;
  for (int depth = 0; depth < 100000; ++depth) objects += "{\"a\":";
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"not JSON", "start\n"},
      {"a broken object", line.substr(0, line.size() / 2) + "\n"},
      {"text after the object", line.substr(0, line.size() - 1) + "}\n"},
      {"a key in another case", withMember(line, title, "\"Title\":\"Weekly\"")},
      {"bytes that are not UTF-8", withMember(line, "Weekly", "\xFF")},
      {"half of a surrogate pair", withMember(line, "Weekly", R"(\uD800)")},
      {"a control character in a string", withMember(line, "Weekly", "\x01")},
      {"one level too many", withMember(line, title, title + ",\"more\":" + tooDeep)},
      {"nested objects that never close", objects + "\n"},
  };
  for (const auto& [name, input] : cases) {
    SCOPED_TRACE(name);
    expectFailure(converse(input), "");
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
}

TEST_F(Start, RefusesOtherModesAsReceived) {
  const std::vector<std::pair<std::string, std::string>> modes = {{"Mixed", "Mixed"},
                                                                  {" mixed", " mixed"},
                                                                  {"mixed ", "mixed "},
                                                                  {"", ""},
                                                                  {"mixed\\u0000x", "mixed\0x"s}};
  for (const auto& [mode, received] : modes) {
    const Outcome run = converse(withMember(startLine(), "\"mixed\"", "\"" + mode + "\""));
    EXPECT_EQ(expectFailure(run, ""),
              "Mixed mode is required for Quenlor helper capture. Received: " + received);
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
}

TEST_F(Start, NeedsALine) {
  for (const std::string_view input : {"", "\n", " \t\r\n\r\n", "  "}) {
    EXPECT_EQ(expectFailure(converse(input), ""), "No start request was received on stdin.");
  }
}

TEST_F(Start, AcceptsAnyOrderMoreMembersAndBlanksAround) {
  const std::string path = "\"outputPath\":\"" + output.string() + "\"";
  const std::string line = startLine().substr(0, startLine().size() - 1);
  const std::string deepest = std::string(127, '[') + std::string(127, ']');
  for (const std::string& input : {
           "{\"title\":\"\"," + path + ",\"mode\":\"mixed\"}\nstop\n",
           "{ \"more\":" + deepest + ", \"title\":\"T\", " + path + ",\"mode\":\"mixed\"}\nstop\n",
           "{ \"more\":{\"title\":[1.5,null]}, \"title\":\"T\", " + path +
               ",\"mode\":\"mixed\" }\nstop\n",
           "{\"\\u006dode\":\"mi\\u0078ed\",\"title\":\"\\ud834\\udd1e\"," + path + "}\nstop\n",
           "\n \t\r\n  " + line + " \r\nstop\n", std::string(1'000'000, ' ') + line + "\nstop\n",
           line,  // the end of input is an end of a line, and a stop
       }) {
    SCOPED_TRACE(input.substr(0, 80));
    expectRecording(converse(input), output);
    std::filesystem::remove(output);
  }
}

TEST_F(Start, HoldsLittleOfAnEndlessLine) {
  ChildProcess child = launch();
  const std::string mebibyte(1 << 20, 'x');
  for (int written = 0; written < 1024; ++written) child.write(mebibyte);
  EXPECT_TRUE(expectFailure(finish(child), "")
                  .starts_with("The helper audio sidecar could not read stdin: "));
  EXPECT_LT(child.peakMemoryKiB(), 64 * 1024);
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

TEST_F(Start, WaitsForTheLineFeed) {
  ChildProcess child = launch();
  const std::string line = startLine();
  child.write(std::string_view(line).substr(0, line.size() - 1));
  EXPECT_THROW((void)child.readLine(std::chrono::milliseconds{100}), std::runtime_error);
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
  child.write("\nstop\n");
  expectRecording(finish(child), output);
}

}  // namespace

}  // namespace quenlor::test
