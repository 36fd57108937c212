// What a recording holds, and what happens to whatever stood at its path and around it.

#include "tests/conversation/Conversation.h"
#include "tests/support/LocalSocket.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/Tone.h"
#include "tests/support/WaveFile.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr std::uintmax_t oneSecond = 44 + 4 * 48000;
// Of a disk, for 85 ms of a recording.
constexpr std::uintmax_t room = 16384;

using Actions = std::vector<std::pair<std::string, std::function<void()>>>;

class OutputFile : public Conversation {
 protected:
  // Stops once the recording has that many bytes, however long a busy machine takes for them.
  Outcome recordBytes(std::uintmax_t size) const {
    ChildProcess child = launch();
    awaitReady(child);
    const auto deadline = std::chrono::steady_clock::now() + ChildProcess::defaultPatience;
    while (fs::file_size(output) < size && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(5ms);
    child.write("stop\n");
    return finish(child);
  }

  void expectRemovedWhenThereIsNoRoom(const std::string& reason) const {
    const std::string error = expectFailure(recordBytes(room), readyLine);
    EXPECT_NE(error.find(reason), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(output));
  }

  /// Whether the recording of a second holds both tones unbroken, away from either end.
  bool holdsBothTones() const {
    const WaveFile wave = readWaveFile(output);
    EXPECT_EQ(wave.left, wave.right);
    // Half a second, a whole number of periods of both tones.
    const std::span<const float> middle = std::span(wave.left).subspan(9600, 24000);
    for (const double frequency : {440, 1000})
      if (std::abs(fitTone(middle, frequency, 48000).amplitude - 0.25) > 0.005) return false;
    constexpr std::size_t period = 1200;
    for (std::size_t i = period; i < middle.size(); ++i)
      if (std::abs(middle[i] - middle[i - period]) > 4.0 / 32768) return false;
    return true;
  }

  /// A device of a busy machine may come late by more than the mixer waits, but not every time.
  void expectBothTones() const {
    for (int attempt = 0; attempt < 8; ++attempt) {
      const Outcome run = recordBytes(oneSecond);
      expectRecording(run, output);
      EXPECT_EQ(readFile(traceFile), run.errors);
      if (holdsBothTones()) return;
      fs::remove(traceFile);
    }
    FAIL() << "In each attempt a tone was broken.";
  }
};

TEST_F(OutputFile, HoldsBothSourcesAtTheirLevel) {
  expectBothTones();
}

#ifdef QUENLOR_SHORT_COUNTS_PATH
TEST_F(OutputFile, HoldsTheSameWhereReadsAndWritesComeShort) {
  setUp += "export LD_PRELOAD='" QUENLOR_SHORT_COUNTS_PATH "'\n";
  expectBothTones();
}
#endif

TEST_F(OutputFile, MayBeRelativeInMissingFolders) {
  for (const char* path :
       {"relative.wav", "new/../new/relative.wav", "./-", "a/b c/\xC3\xA4/r.wav"})
    expectRecording(converse(startLine(path) + "stop\n"), folder / path);
}

TEST_F(OutputFile, ReplacesWhatStandsThereButNotWhatALinkNames) {
  const fs::path precious = folder / "directory/precious.txt";
  fs::create_directory(precious.parent_path());
  writeFile(precious, "precious");
  const Actions obstacles = {
      {"longer file", [&] { writeFile(output, std::string(1'000'000, 'x')); }},
      {"link", [&] { fs::create_symlink(precious, output); }},
      {"hard link", [&] { fs::create_hard_link(precious, output); }},
      {"dangling link", [&] { fs::create_symlink(folder / "nowhere", output); }},
      {"link to itself", [&] { fs::create_symlink(output, output); }},
      {"link to a folder", [&] { fs::create_directory_symlink(precious.parent_path(), output); }},
      {"named pipe", [&] { ASSERT_EQ(mkfifo(output.c_str(), 0600), 0); }},
      {"socket", [&] { const LocalSocket closedAtOnce(output); }},
  };
  for (const auto& [name, put] : obstacles) {
    SCOPED_TRACE(name);
    put();
    expectRecording(recordUntil("stop\n"), output);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(output)));
    EXPECT_EQ(readFile(precious), "precious");
    EXPECT_FALSE(fs::exists(folder / "nowhere"));
    fs::remove(output);
  }
}

TEST_F(OutputFile, IsRefusedWhereItCannotBeMade) {
  fs::create_directory(folder / "directory");
  writeFile(folder / "directory/inside.txt", "precious");
  fs::create_directory(folder / "empty");
  writeFile(folder / "file", "precious");
  fs::create_symlink(folder / "nowhere", folder / "dangling");
  setUp += "cd empty\n";
  const std::set<std::string> before = filesLeft();

  const std::string here = folder.path().string() + "/";
  const std::string longName(4096, 'n');
  std::string deep;
  while (deep.size() < 8192) deep += "deeper/";
  std::vector<std::string> paths = {"", ".", "..", "/", "//", deep + "a.wav"};
  for (const std::string& path :
       {"directory"s, "directory/"s, "empty"s, "file/recording.wav"s, "file/deeper/recording.wav"s,
        "dangling/recording.wav"s, "empty/.."s, "empty/."s, "missing/.."s,
        "missing/recording.wav/."s, "file\\u0000.wav"s, "new\\u0000/recording.wav"s, longName,
        longName + "/a.wav", deep + "a.wav"})
    paths.push_back(here + path);
  for (const std::string& path : paths) {
    SCOPED_TRACE(path.substr(0, 80));
    expectFailure(converse(startLine(path) + "stop\n"), "");
    EXPECT_EQ(filesLeft(), before);
    EXPECT_EQ(readFile(folder / "directory/inside.txt"), "precious");
    EXPECT_EQ(readFile(folder / "file"), "precious");
  }
  EXPECT_EQ(expectFailure(converse(startLine(here + longName.substr(0, 300))), ""),
            "WaveWriter could not open the output file.");
}

TEST_F(OutputFile, IsRefusedInAReadOnlyFolder) {
  const MountedFolder mount(folder / "fixed", 65536);
  if (!mount.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  writeFile(folder / "fixed/old.wav", "precious");
  mount.makeReadOnly();
  for (const char* path : {"new.wav", "old.wav", "folder/new.wav"}) {
    expectFailure(converse(startLine((folder / "fixed" / path).string()) + "stop\n"), "");
    EXPECT_EQ(filesLeft(), (std::set<std::string>{"fixed", "fixed/old.wav"}));
    EXPECT_EQ(readFile(folder / "fixed/old.wav"), "precious");
  }
}

// What is recorded goes on into the file that was made, wherever its name went; a file that came
// to that name meanwhile is somebody else's.
TEST_F(OutputFile, MayBeMovedRemovedOrReplacedMeanwhile) {
  const fs::path moved = folder / "moved.wav";
  const Actions interferences = {
      {"moved.wav", [&] { fs::rename(output, moved); }},
      {"", [&] { fs::remove(output); }},
      {"recording.wav", [&] { fs::rename(folder / "other", output); }},
  };
  for (const bool stops : {true, false}) {
    for (const auto& [left, interfere] : interferences) {
      SCOPED_TRACE(left);
      ChildProcess child = launch();
      awaitReady(child);
      writeFile(folder / "other", "precious");
      interfere();
      fs::remove(folder / "other");
      child.write(stops ? "stop\n" : "halt\n");
      EXPECT_EQ(finish(child).status, stops ? 0 : 1);
      EXPECT_EQ(filesLeft(), left.empty() ? std::set<std::string>{} : std::set{left});
      if (left == "recording.wav") {
        EXPECT_EQ(readFile(output), "precious");
      }
      if (left == "moved.wav" && stops) {
        EXPECT_NO_THROW((void)readWaveFile(moved));
      }
      fs::remove(moved);
      fs::remove(output);
    }
  }
}

TEST_F(OutputFile, IsRemovedWhenTheDiskIsFull) {
  const MountedFolder small(folder / "small", room);
  if (!small.isMounted()) GTEST_SKIP() << "Mounting a small file system is not permitted here.";
  output = folder / "small/recording.wav";
  expectRemovedWhenThereIsNoRoom("No space left on device");
}

TEST_F(OutputFile, IsRemovedWhenItExceedsALimit) {
  setUp += "ulimit -f " + std::to_string(room / 1024) + "\n";
  expectRemovedWhenThereIsNoRoom("File too large");
}

}  // namespace

}  // namespace quenlor::test
