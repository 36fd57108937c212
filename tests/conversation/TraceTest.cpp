// The trace on standard error and in the trace file.

#include "tests/conversation/Conversation.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/WaitUntil.h"

#include <ctime>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> messagesOfARecording = {
    "Received start request frame from the helper.",
    "Decoded start request for title: Weekly",
    "Creating the audio tap session.",
    "Starting the audio tap session.",
    "Ensuring system-audio capture access.",
    "System-audio capture access check completed.",
    "Ensuring microphone access.",
    "Microphone access granted.",
    "Configuring microphone capture.",
    "Reading the microphone input node format.",
    "Creating the microphone converter.",
    "Installing the microphone tap.",
    "Starting the microphone engine.",
    "Microphone engine started.",
    "Microphone capture configured.",
    "Configuring the Core Audio tap and aggregate device.",
    "Calling AudioHardwareCreateProcessTap.",
    "AudioHardwareCreateProcessTap succeeded.",
    "Calling AudioHardwareCreateAggregateDevice.",
    "AudioHardwareCreateAggregateDevice succeeded.",
    "Reading the tap UID.",
    "Setting the aggregate-device tap list.",
    "Reading the aggregate-device stream format.",
    "Calling AudioDeviceCreateIOProcIDWithBlock.",
    "AudioDeviceCreateIOProcIDWithBlock succeeded.",
    "Calling AudioDeviceStart.",
    "AudioDeviceStart succeeded.",
    "Core Audio tap and aggregate device configured.",
    "Starting the mixer timer.",
    "Mixer timer started.",
    "Audio tap session reached ready state.",
    "Stop signal received. Finalizing capture.",
};

class Trace : public Conversation {
 protected:
  // On standard error, whatever comes of the file.
  void expectRecordingWithWholeTrace() const {
    const Outcome run = recordUntil("stop\n");
    expectRecording(run, output);
    EXPECT_EQ(linesOf(run.errors).size(), messagesOfARecording.size());
  }
};

// The messages of a trace without tag and time; a line of another form is kept whole.
std::vector<std::string> messagesOf(const std::string& trace) {
  static const std::regex form(R"(\[QuenlorHelperAudio\] \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ (.*))");
  std::vector<std::string> messages;
  for (const std::string& line : linesOf(trace)) {
    std::smatch match;
    messages.push_back(std::regex_match(line, match, form) ? match[1].str() : line);
  }
  return messages;
}

// Whether the program has come to its first line. (Its name changes when the shell has become it.)
bool isWaitingForInput(const ChildProcess& child) {
  const std::string process = "/proc/" + std::to_string(child.pid());
  return readFile(process + "/comm").starts_with("QuenlorHelper") &&
         readFile(process + "/stat").find(") S ") != std::string::npos;
}

TEST_F(Trace, TellsEveryStepInBothPlaces) {
  const Outcome run = recordUntil("stop\n");
  EXPECT_EQ(messagesOf(run.errors), messagesOfARecording);
  EXPECT_EQ(readFile(traceFile), run.errors);
}

TEST_F(Trace, TellsTheTimeInUtc) {
  // A time zone whose clock has counted 1000 leap seconds since 1970.
  const std::string zoneFile = folder / "zone";
  const std::string header = "TZif" + std::string(24, '\0');
  writeFile(zoneFile, header + std::string("\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\4"
                                           "\0\0\0\0\0\0UTC\0\0\0\0\1\0\0\3\350",
                                           34));
  for (const std::string& zone : {std::string("FAR-11:30"), ":" + zoneFile}) {
    setUp += "export TZ=" + zone + "\n";
    const Outcome run = converse("{}\n");
    std::tm fields{};
    const std::string time = run.errors.substr(traceTag.size(), 20);
    ASSERT_NE(strptime(time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields), nullptr) << time;
    EXPECT_NEAR(std::difftime(std::time(nullptr), timegm(&fields)), 0, 60) << zone;
  }
}

TEST_F(Trace, FileGrowsFromRunToRunAndHoldsErrors) {
  writeFile(traceFile, "an older line\n");
  expectFailure(converse(""), "");
  EXPECT_EQ(converse(R"({"mode":"\u00e4","outputPath":"","title":"one\ntwo \u00fc"})").status, 1);
  const std::vector<std::string> expected = {
      "an older line",
      "Error: No start request was received on stdin.",
      "Received start request frame from the helper.",
      "Decoded start request for title: one",
      "two \xC3\xBC",
      "Error: Mixed mode is required for Quenlor helper capture. Received: \xC3\xA4",
  };
  EXPECT_EQ(messagesOf(readFile(traceFile)), expected);
}

TEST_F(Trace, FileHoldsTheLinesOfAllThatMakeItAtOnce) {
  constexpr std::size_t programs = 8;
  for (int round = 0; round < 10; ++round) {
    std::vector<std::unique_ptr<ChildProcess>> running;
    for (std::size_t i = 0; i < programs; ++i)
      running.push_back(
          std::make_unique<ChildProcess>(std::vector<std::string>{QUENLOR_SIDECAR_PATH}, setUp));
    for (const auto& child : running) waitUntil([&child] { return isWaitingForInput(*child); });
    for (const auto& child : running) child->closeInput();
    for (const auto& child : running) EXPECT_EQ(child->waitForExit(), 1);
    EXPECT_EQ(countLines(readFile(traceFile), "Error: "), programs);
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
    fs::remove(traceFile);
  }
}

TEST_F(Trace, FileIsLeftAloneUnlessItIsOurs) {
  const fs::path target = folder / "target";
  const std::vector<std::pair<const char*, std::function<void()>>> obstacles = {
      {"symbolic link", [&] { fs::create_symlink(target, traceFile); }},
      {"hard link", [&] { fs::create_hard_link(target, traceFile); }},
      {"named pipe", [&] { ASSERT_EQ(mkfifo(traceFile.c_str(), 0600), 0); }},
      {"directory", [&] { fs::create_directory(traceFile); }},
  };
  for (const auto& [name, put] : obstacles) {
    SCOPED_TRACE(name);
    writeFile(target, "precious");
    put();
    const fs::file_type type = fs::symlink_status(traceFile).type();
    expectRecordingWithWholeTrace();
    EXPECT_EQ(fs::symlink_status(traceFile).type(), type);
    EXPECT_EQ(readFile(target), "precious");
    fs::remove(traceFile);
  }
}

TEST_F(Trace, FileOfAnotherUserIsLeftAlone) {
  writeFile(traceFile, "precious");
  if (chown(traceFile.c_str(), 65534, 65534) != 0) {
    GTEST_SKIP() << "Giving a file to another user is not permitted here.";
  }
  expectRecordingWithWholeTrace();
  EXPECT_EQ(readFile(traceFile), "precious");
}

TEST_F(Trace, NeedsNoFile) {
  fs::remove(traceFile.parent_path());
  writeFile(folder / "file", "precious");
  for (const std::string& temporaryFolder :
       {traceFile.parent_path().string(), (folder / "file").string(), std::string(5000, 't'),
        std::string("/proc")}) {
    SCOPED_TRACE(temporaryFolder);
    setUp += "export TMPDIR='" + temporaryFolder + "'\n";
    expectRecordingWithWholeTrace();
    EXPECT_EQ(filesLeft(), (std::set<std::string>{"file", "recording.wav"}));
  }
}

TEST_F(Trace, NeedsNoRoom) {
  const MountedFolder mount(traceFile.parent_path(), 8192);
  if (!mount.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  writeFile(traceFile.parent_path() / "rest", std::string(8192, 'x'));
  for (const bool readOnly : {false, true}) {
    if (readOnly) mount.makeReadOnly();
    expectRecordingWithWholeTrace();
    EXPECT_EQ(filesLeft(), (std::set<std::string>{"recording.wav", "tmp/rest"}));
    EXPECT_FALSE(fs::exists(traceFile));
  }
}

}  // namespace

}  // namespace quenlor::test
