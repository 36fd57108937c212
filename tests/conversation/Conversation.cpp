#include "tests/conversation/Conversation.h"

#include "tests/support/WaveFile.h"

#include <regex>
#include <sstream>
#include <thread>

namespace quenlor::test {

Conversation::Conversation() {
  std::filesystem::create_directory(traceFile.parent_path());
  setUp = "cd '" + folder.path().string() + "'\nexport TMPDIR=\"$PWD/tmp\"\n";
}

std::string Conversation::startLine(std::string_view path) {
  return "{\"mode\":\"mixed\",\"outputPath\":\"" + std::string(path) + "\",\"title\":\"Weekly\"}\n";
}

ChildProcess Conversation::launch() const {
  return ChildProcess({QUENLOR_SIDECAR_PATH}, setUp);
}

void Conversation::awaitReady(ChildProcess& child) const {
  child.write(startLine());
  ASSERT_EQ(child.readLine(), R"({"status":"ready"})") << child.standardError();
}

Outcome Conversation::converse(std::string_view input) const {
  ChildProcess child = launch();
  child.write(input);
  child.closeInput();
  return finish(child);
}

Outcome Conversation::recordUntil(std::string_view stop, std::chrono::milliseconds length) const {
  ChildProcess child = launch();
  awaitReady(child);
  std::this_thread::sleep_for(length);
  child.write(stop);
  return finish(child);
}

std::set<std::string> Conversation::filesLeft() const {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    names.insert(entry.path().lexically_relative(folder.path()).string());
  }
  names.erase("tmp");
  names.erase("tmp/quenlor-helper-audio.log");
  return names;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::size_t countLines(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (const std::string& line : linesOf(text)) count += line.find(part) != std::string::npos;
  return count;
}

std::string expectFailure(const Outcome& run, std::string_view expectedOutput) {
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, expectedOutput);
  EXPECT_TRUE(run.errors.ends_with('\n'));
  std::vector<std::string> lines = linesOf(run.errors);
  if (lines.empty()) {
    ADD_FAILURE() << "Standard error is empty.";
    return {};
  }
  std::string last = lines.back();
  lines.pop_back();
  EXPECT_FALSE(last.empty());
  EXPECT_FALSE(last.starts_with(traceTag)) << last;
  for (const std::string& line : lines) EXPECT_TRUE(line.starts_with(traceTag)) << line;
  return last;
}

void expectRecording(const Outcome& run, const std::filesystem::path& path) {
  EXPECT_EQ(run.status, 0) << run.errors;
  static const std::regex form(
      R"(\{"status":"ready"\}\n\{"durationSeconds":([-+.eE0-9]+),"sizeBytes":([0-9]+)\}\n)");
  std::smatch result;
  ASSERT_TRUE(std::regex_match(run.output, result, form)) << run.output;
  EXPECT_EQ(std::stoull(result[2]), std::filesystem::file_size(path));
  EXPECT_GE(std::stod(result[1]), readWaveFile(path).durationSeconds());
  for (const std::string& line : linesOf(run.errors)) {
    EXPECT_TRUE(line.starts_with(traceTag)) << line;
  }
}

}  // namespace quenlor::test
