// quenlor-record as scripts and people without a terminal see it.

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace quenlor::test {

namespace {

const std::regex resultInWords(R"(Recorded (\d+\.\d\d) s \((\d+) bytes\) to recording\.wav)");

bool isRunning(pid_t process) {
  return ::kill(process, 0) == 0;
}

/// The only child of a process.
pid_t childOf(pid_t process) {
  const std::string id = std::to_string(process);
  pid_t child = -1;
  std::ifstream("/proc/" + id + "/task/" + id + "/children") >> child;
  return child;
}

class Record : public testing::Test {
 protected:
  [[nodiscard]] ChildProcess launch(const std::vector<std::string>& added,
                                    const std::string& sidecar = QUENLOR_SIDECAR_PATH) const {
    std::vector<std::string> command = {QUENLOR_RECORD_PATH, "--sidecar", sidecar, "recording.wav"};
    command.insert(command.end(), added.begin(), added.end());
    return ChildProcess(command, "cd '" + folder.path().string() + "'; export TMPDIR=\"$PWD\"");
  }
  static void awaitReady(ChildProcess& child) {
    ASSERT_EQ(child.readLine(), "Recording to recording.wav. Ctrl-C stops.");
  }
  void expectResult(ChildProcess& child) const {
    EXPECT_EQ(child.waitForExit(), 0) << child.standardError();
    const std::string result = child.readLine().value_or("");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(result, parts, resultInWords)) << result;
    EXPECT_EQ(std::stoull(parts[2]), std::filesystem::file_size(recording));
    EXPECT_NEAR(std::stod(parts[1]), readWaveFile(recording).durationSeconds(), 0.1);
    EXPECT_EQ(child.standardOutput().find('\x1b'), std::string::npos);
    EXPECT_EQ(child.standardError(), "");
  }

  TemporaryFolder folder;
  std::filesystem::path recording = folder / "recording.wav";
};

TEST_F(Record, StopsAtTheEndOfInputAtAKeyAndAtSignals) {
  using Stop = void (*)(ChildProcess&);
  for (const Stop stop : {Stop([](ChildProcess& child) { child.closeInput(); }),
                          Stop([](ChildProcess& child) { child.write("q"); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGINT); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGTERM); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGHUP); })}) {
    ChildProcess child = launch({});
    awaitReady(child);
    stop(child);
    expectResult(child);
    std::filesystem::remove(recording);
  }
}

TEST_F(Record, StopsAfterItsSeconds) {
  ChildProcess child = launch({"--seconds", "0.5"});
  EXPECT_TRUE(child.readLine());
  expectResult(child);
  EXPECT_NEAR(readWaveFile(recording).durationSeconds(), 0.5, 0.3);
}

TEST_F(Record, PrintsTheRepliesForScripts) {
  ChildProcess child = launch({"--json", "--seconds", "0.1", "--title", "a \"b\" \\ \xC3\xA9\n"});
  EXPECT_EQ(child.waitForExit(), 0);
  static const std::regex replies(
      R"(\{"status":"ready"\}\n\{"durationSeconds":[0-9.]+,"sizeBytes":[0-9]+\}\n)");
  EXPECT_TRUE(std::regex_match(child.standardOutput(), replies)) << child.standardOutput();
  EXPECT_EQ(child.standardError(), "");
}

TEST_F(Record, IsQuietWhenAsked) {
  ChildProcess child = launch({"--quiet", "--seconds", "0.1"});
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(child.standardOutput() + child.standardError(), "");
}

TEST_F(Record, KeepsAnExistingFileUnlessForced) {
  std::ofstream(recording) << "precious";
  ChildProcess refused = launch({"--seconds", "0.1"});
  EXPECT_EQ(refused.waitForExit(), 1);
  EXPECT_EQ(refused.standardError(), "quenlor-record: recording.wav exists; --force replaces it\n");
  EXPECT_EQ(std::filesystem::file_size(recording), 8U);

  ChildProcess forced = launch({"--seconds", "0.1", "--force"});
  EXPECT_TRUE(forced.readLine());
  expectResult(forced);
}

TEST_F(Record, RefusesWhatItDoesNotUnderstand) {
  for (const std::vector<std::string>& options :
       std::vector<std::vector<std::string>>{{"--seconds", "0"},
                                             {"--seconds", "nan"},
                                             {"--seconds", "x"},
                                             {"--json", "--quiet"},
                                             {"--unknown"},
                                             {"second.wav"}}) {
    ChildProcess child = launch(options);
    EXPECT_GT(child.waitForExit(), 1) << options.front();
    EXPECT_NE(child.standardError(), "");
    EXPECT_FALSE(std::filesystem::exists(recording));
  }
}

TEST_F(Record, ShowsTheSidecarsErrorAndStatus) {
  std::filesystem::create_directory(recording);
  ChildProcess child = launch({"--force"});
  EXPECT_EQ(child.waitForExit(), 1);
  EXPECT_EQ(child.standardOutput(), "");
  const std::string& errors = child.standardError();
  EXPECT_TRUE(errors.starts_with("Replacing \"")) << errors;
  EXPECT_TRUE(errors.ends_with("Is a directory\nQuenlorHelperAudioVirtual ended with status 1.\n"))
      << errors;
}

TEST_F(Record, FailsWithASidecarThatIsNone) {
  for (const auto& [sidecar, expected] : std::vector<std::pair<std::string, std::string>>{
           {"/nowhere/sidecar", "Starting \"/nowhere/sidecar\" failed: No such file or directory"},
           {"/bin/true", "true ended with status 0."},
           {"/bin/cat", "The message has no value for the key \"status\"."}}) {
    ChildProcess child = launch({}, sidecar);
    EXPECT_EQ(child.waitForExit(), 1);
    EXPECT_NE(child.standardError().find(expected), std::string::npos) << child.standardError();
  }
}

TEST_F(Record, TellsAtOnceThatTheSidecarDied) {
  ChildProcess child = launch({});
  awaitReady(child);
  ASSERT_EQ(::kill(childOf(child.pid()), SIGKILL), 0);
  EXPECT_EQ(child.waitForExit(), 1);
  EXPECT_NE(child.standardError().find(
                "\nQuenlorHelperAudioVirtual was ended by signal 9 (Killed).\n"
                "What was recorded can be completed: quenlor-wav-repair recording.wav\n"),
            std::string::npos)
      << child.standardError();
}

TEST_F(Record, LeavesAWholeRecordingAndNoSidecarWhenKilled) {
  ChildProcess child = launch({});
  awaitReady(child);
  const pid_t sidecar = childOf(child.pid());
  ASSERT_TRUE(isRunning(sidecar));
  child.sendSignal(SIGKILL);
  EXPECT_EQ(child.waitForExit(), 128 + SIGKILL);
  const auto deadline = std::chrono::steady_clock::now() + ChildProcess::defaultPatience;
  while (isRunning(sidecar) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds{5});
  EXPECT_FALSE(isRunning(sidecar));
  EXPECT_NO_THROW((void)readWaveFile(recording));
}

}  // namespace

}  // namespace quenlor::test
