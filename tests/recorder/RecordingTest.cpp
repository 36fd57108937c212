// quenlor-record as scripts and people without a terminal see it.

#include "tests/recorder/RecorderRun.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaveFile.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::regex resultInWords(R"(Recorded (\d+\.\d\d) s \(\d+\.\d [kM]B\) to recording\.wav)");

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

class Record : public RecorderRun {
 protected:
  void expectResult(ChildProcess& child) const {
    EXPECT_EQ(child.waitForExit(), 0) << child.standardError();
    const std::string result = child.readLine().value_or("");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(result, parts, resultInWords)) << result;
    EXPECT_NEAR(std::stod(parts[1]), readWaveFile(recording).durationSeconds(), 0.1);
    EXPECT_EQ(child.standardOutput().find('\x1b'), std::string::npos);
    EXPECT_EQ(child.standardError(), "");
  }
  void expectKeptForWantOfRoom(ChildProcess& child, const std::string& reason) const {
    EXPECT_EQ(child.waitForExit(), 3);
    EXPECT_THAT(child.standardOutput(), HasSubstr("\nRecorded "));
    EXPECT_EQ(child.standardError(), "quenlor-record: There is no room for more: " + reason +
                                         ". The recording was stopped and is kept.\n");
    EXPECT_GT(readWaveFile(recording).durationSeconds(), 0);
  }
};

TEST_F(Record, StopsAtTheEndOfInputAndAtSignals) {
  using Stop = void (*)(ChildProcess&);
  for (const Stop stop : {Stop([](ChildProcess& child) { child.closeInput(); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGINT); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGTERM); }),
                          Stop([](ChildProcess& child) { child.sendSignal(SIGHUP); })}) {
    ChildProcess child = record({});
    awaitReady(child);
    stop(child);
    expectResult(child);
    std::filesystem::remove(recording);
  }
}

TEST_F(Record, StopsAfterItsTimeWhateverThePipeHolds) {
  for (const auto& [option, time] : {std::pair{"--seconds", "0.5"}, {"-d", "0:00.5"}}) {
    ChildProcess child = record({option, time});
    child.write("q\x04\n");
    EXPECT_TRUE(child.readLine());
    expectResult(child);
    EXPECT_NEAR(readWaveFile(recording).durationSeconds(), 0.5, 0.3);
    std::filesystem::remove(recording);
  }
}

TEST_F(Record, PrintsTheRepliesForScripts) {
  ChildProcess child = record({"--json", "-d", "0.1", "--title", "a \"b\" \\ \xC3\xA9\n"});
  EXPECT_EQ(child.waitForExit(), 0);
  static const std::regex replies(
      R"(\{"status":"ready"\}\n\{"durationSeconds":[0-9.]+,"sizeBytes":[0-9]+\}\n)");
  EXPECT_TRUE(std::regex_match(child.standardOutput(), replies)) << child.standardOutput();
  EXPECT_EQ(child.standardError(), "");
}

TEST_F(Record, IsQuietWhenAsked) {
  ChildProcess child = record({"-q", "-d", "0.1"});
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(child.standardOutput() + child.standardError(), "");
}

TEST_F(Record, ChecksTheLevelsWithoutAFile) {
  ChildProcess child = launch({"--test"});
  ASSERT_EQ(child.readLine(), "Checking the levels; nothing is kept. Ctrl-C stops.");
  EXPECT_THAT(filesLeft(), IsEmpty());
  std::this_thread::sleep_for(std::chrono::milliseconds{300});
  child.sendSignal(SIGINT);
  EXPECT_EQ(child.waitForExit(), 0);
  static const std::regex levels(
      R"(Heard 0\.\d\d s \(.*\), at most -6\.\d dBFS on the left and -6\.\d dBFS on the right\.)");
  const std::string last = child.readLine().value_or("");
  EXPECT_TRUE(std::regex_match(last, levels)) << last;
  EXPECT_THAT(filesLeft(), IsEmpty());
}

TEST_F(Record, KeepsAnExistingFileUnlessForced) {
  writeFile(recording, "precious");
  ChildProcess refused = record({"-d", "0.1"});
  EXPECT_EQ(refused.waitForExit(), 1);
  EXPECT_EQ(refused.standardError(), "quenlor-record: recording.wav exists; --force replaces it\n");

  ChildProcess failed = record({"--force"}, "/bin/false");
  EXPECT_EQ(failed.waitForExit(), 1);
  EXPECT_EQ(failed.standardError(),
            "quenlor-record: false ended with status 1.\n"
            "quenlor-record: The earlier recording.wav is back.\n");
  EXPECT_EQ(readFile(recording), "precious");

  ChildProcess forced = record({"-d", "0.1", "-f"});
  EXPECT_TRUE(forced.readLine());
  expectResult(forced);
  EXPECT_THAT(filesLeft(), ElementsAre("recording.wav"));
}

TEST_F(Record, RefusesWhatItDoesNotUnderstand) {
  for (const std::vector<std::string>& options :
       std::vector<std::vector<std::string>>{{"--seconds", "0"},
                                             {"-d", "1:99"},
                                             {"--json", "--quiet"},
                                             {"--unknown"},
                                             {"--test"},
                                             {"--title", "\xE9"},
                                             {"second.wav"}}) {
    ChildProcess child = record(options);
    EXPECT_EQ(child.waitForExit(), 2) << options.front();
    EXPECT_NE(child.standardError(), "");
  }
  for (const std::string name : {"-", "caf\xE9.wav"}) {
    ChildProcess child = launch({name});
    EXPECT_EQ(child.waitForExit(), 2);
    EXPECT_THAT(child.standardError(), HasSubstr("FILE: "));
  }
  EXPECT_THAT(filesLeft(), IsEmpty());
}

TEST_F(Record, TellsWhyAFileCannotBeMade) {
  std::filesystem::create_directory(folder / "folder");
  const std::string longName = "new/" + std::string(300, 'n');
  for (const auto& [name, error] :
       {std::pair<std::string, std::string>{"folder", "folder is a folder;"},
        {"/", "/ is a folder;"},
        {longName, longName + " cannot be made: File name too long\n"},
        {"/proc/none/a.wav", "Creating the folder \"/proc/none\" failed: No such file or"}}) {
    ChildProcess child = launch({"-f", name});
    EXPECT_EQ(child.waitForExit(), 1);
    EXPECT_EQ(child.standardOutput(), "");
    EXPECT_TRUE(child.standardError().starts_with("quenlor-record: " + error))
        << child.standardError();
  }
}

TEST_F(Record, FailsWithASidecarThatIsNone) {
  for (const auto& [sidecar, expected] : std::vector<std::pair<std::string, std::string>>{
           {"/nowhere/sidecar", "Starting \"/nowhere/sidecar\" failed: No such file or directory"},
           {"/bin/true", "true ended with status 0."},
           {"/bin/cat", "The message has no value for the key \"status\"."}}) {
    ChildProcess child = record({}, sidecar);
    EXPECT_EQ(child.waitForExit(), 1);
    EXPECT_THAT(child.standardError(), HasSubstr(expected));
  }
}

TEST_F(Record, GoesOnWithoutStandardOutput) {
  ChildProcess child = record({"-d", "0.5"});
  child.closeOutput();
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(child.standardError(),
            "quenlor-record: Writing to standard output failed: Broken pipe\n");
  EXPECT_NEAR(readWaveFile(recording).durationSeconds(), 0.5, 0.3);
}

TEST_F(Record, StopsBeforeTheDiskIsFull) {
  const MountedFolder disk(folder / "disk", 2'000'000);
  if (!disk.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  recording = folder / "disk/recording.wav";
  setUp = "cd disk\n";
  ChildProcess child = record({});
  awaitReady(child);
  std::ofstream(folder / "disk/other") << std::string(2'000'000, 'x');
  expectKeptForWantOfRoom(child, "No space left on device");
}

TEST_F(Record, StopsBeforeTheLimitOfFileSizes) {
  setUp = "ulimit -f 1000\n";
  ChildProcess child = record({});
  awaitReady(child);
  expectKeptForWantOfRoom(child, "File too large");
}

TEST_F(Record, LeavesTheEarlierFileWhereThereIsNoRoomFromTheStart) {
  writeFile(recording, "precious");
  setUp = "ulimit -f 500\n";
  ChildProcess child = record({"--force"});
  EXPECT_EQ(child.waitForExit(), 1);
  EXPECT_EQ(child.standardError(),
            "quenlor-record: There is no room for a recording: File too large.\n"
            "quenlor-record: The earlier recording.wav is back.\n");
  EXPECT_EQ(readFile(recording), "precious");
  EXPECT_THAT(filesLeft(), ElementsAre("recording.wav"));
}

TEST_F(Record, TellsAtOnceThatTheSidecarDied) {
  for (const bool replaces : {false, true}) {
    ChildProcess child =
        record(replaces ? std::vector<std::string>{"-f"} : std::vector<std::string>{});
    awaitReady(child);
    waitUntil([this] { return std::filesystem::file_size(recording) > 10'000; });
    ASSERT_EQ(::kill(childOf(child.pid()), SIGKILL), 0);
    EXPECT_EQ(child.waitForExit(), 1);
    static const std::regex told(
        "quenlor-record: QuenlorHelperAudioVirtual was ended by signal 9 \\(Killed\\)\\.\n"
        "quenlor-record: What was recorded can be completed: quenlor-wav-repair (\\S+)\n"
        "(quenlor-record: The earlier recording\\.wav is back\\.\n)?");
    std::smatch parts;
    const std::string errors = child.standardError();
    ASSERT_TRUE(std::regex_match(errors, parts, told)) << errors;
    EXPECT_EQ(parts[2].matched, replaces);
    EXPECT_GT(std::filesystem::file_size(folder / parts[1].str()), 10'000U);
    if (replaces) {
      EXPECT_EQ(readFile(recording), "precious");
    }
    writeFile(recording, "precious");
  }
}

TEST_F(Record, LeavesAWholeRecordingAndNoSidecarWhenKilled) {
  ChildProcess child = record({});
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
