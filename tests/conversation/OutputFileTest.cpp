// What happens to whatever stands at the output path, and to what stands around it.

#include "tests/conversation/Conversation.h"

#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

using OutputFile = Conversation;

// A file system that has room for almost nothing, until the end of a scope.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(fs::path where) : folder(std::move(where)) {
    fs::create_directory(folder);
    mounted = mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=16k") == 0;
  }
  ~SmallFileSystem() {
    if (mounted) umount2(folder.c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;

  [[nodiscard]] bool isMounted() const { return mounted; }

 private:
  fs::path folder;
  bool mounted = false;
};

// Long enough to record more than 16 KiB, which is 85 ms.
constexpr std::chrono::milliseconds overflowTime{250};

TEST_F(OutputFile, ReplacesAnOlderFileAndMakesMissingFolders) {
  writeFile(output, std::string(1'000'000, 'x'));
  expectRecording(recordUntil("stop\n"), output);

  output = folder / "a/b c/\xC3\xA4/recording.wav";
  expectRecording(recordUntil("stop\n"), output);
}

TEST_F(OutputFile, MayBeRelative) {
  options.workingDirectory = folder.path();
  for (const char* path : {"relative.wav", "new/../new/relative.wav", "./-"}) {
    expectRecording(converse(startLine(path) + "stop\n"), folder / path);
  }
}

TEST_F(OutputFile, ReplacesALinkAndLeavesItsTarget) {
  const fs::path target = folder / "target.txt";
  writeFile(target, "precious");
  fs::create_symlink(target, output);
  expectRecording(recordUntil("stop\n"), output);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(output)));
  EXPECT_EQ(readFile(target), "precious");

  fs::remove(output);
  fs::create_symlink(folder / "nowhere", output);
  expectRecording(recordUntil("stop\n"), output);
  EXPECT_FALSE(fs::exists(folder / "nowhere"));

  fs::remove(output);
  fs::create_hard_link(target, output);
  expectRecording(recordUntil("stop\n"), output);
  EXPECT_EQ(readFile(target), "precious");
}

TEST_F(OutputFile, ReplacesANamedPipe) {
  ASSERT_EQ(mkfifo(output.c_str(), 0600), 0);
  expectRecording(recordUntil("stop\n"), output);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(output)));
}

TEST_F(OutputFile, IsRefusedWhereItCannotBeMade) {
  fs::create_directory(folder / "directory");
  writeFile(folder / "directory/inside.txt", "precious");
  fs::create_directory(folder / "empty");
  writeFile(folder / "file", "precious");
  options.workingDirectory = folder / "empty";
  const std::set<std::string> before = filesLeft();

  const std::string here = folder.path().string();
  for (const std::string& path : {
           here + "/directory",
           here + "/directory/",
           here + "/empty",
           here + "/file/recording.wav",
           here + "/file/deeper/recording.wav",
           here + "/file\\u0000.wav",
           here + "/new\\u0000/recording.wav",
           std::string(),
           std::string("."),
       }) {
    SCOPED_TRACE(path);
    expectFailure(converse(startLine(path) + "stop\n"), "");
    EXPECT_EQ(filesLeft(), before);
    EXPECT_EQ(readFile(folder / "directory/inside.txt"), "precious");
    EXPECT_EQ(readFile(folder / "file"), "precious");
  }
}

TEST_F(OutputFile, IsRefusedWhereItCannotBeOpened) {
  const std::string path = folder / std::string(300, 'n');
  EXPECT_EQ(expectFailure(converse(startLine(path) + "stop\n"), ""),
            "WaveWriter could not open the output file.");
}

TEST_F(OutputFile, OfAnotherProgramOutlivesAFailedRecording) {
  ChildProcess child = launch();
  awaitReady(child);
  writeFile(folder / "other", "precious");
  fs::rename(folder / "other", output);
  child.write("halt\n");
  expectFailure(finish(child), readyLine);
  EXPECT_EQ(readFile(output), "precious");
}

TEST_F(OutputFile, IsRemovedWhenTheDiskIsFull) {
  const SmallFileSystem small(folder / "small");
  if (!small.isMounted()) GTEST_SKIP() << "Mounting a small file system is not permitted here.";
  output = folder / "small/recording.wav";
  ChildProcess child = launch();
  awaitReady(child);
  std::this_thread::sleep_for(overflowTime);
  child.write("stop\n");
  const std::string error = expectFailure(finish(child), readyLine);
  EXPECT_NE(error.find("No space left on device"), std::string::npos) << error;
  EXPECT_EQ(filesLeft(), std::set<std::string>{"small"});
}

TEST_F(OutputFile, IsRemovedWhenItExceedsALimit) {
  options.fileSizeLimit = 16384;
  ChildProcess child = launch();
  awaitReady(child);
  std::this_thread::sleep_for(overflowTime);
  child.write("stop\n");
  const std::string error = expectFailure(finish(child), readyLine);
  EXPECT_NE(error.find("File too large"), std::string::npos) << error;
  EXPECT_EQ(filesLeft(), std::set<std::string>{});
}

}  // namespace

}  // namespace quenlor::test
