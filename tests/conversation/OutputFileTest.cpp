// What happens to whatever stands at the output path, and to what stands around it.

#include "tests/conversation/Conversation.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/WaveFile.h"

#include <functional>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

using OutputFile = Conversation;

// Leaves a socket's name in the file system.
void makeSocket(const fs::path& path) {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.string().size(), sizeof address.sun_path);
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(descriptor);
}

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

TEST_F(OutputFile, ReplacesWhatIsNoFile) {
  const fs::path inside = folder / "directory/inside.txt";
  fs::create_directory(inside.parent_path());
  writeFile(inside, "precious");
  for (const std::function<void()>& put : std::vector<std::function<void()>>{
           [&] { ASSERT_EQ(mkfifo(output.c_str(), 0600), 0); },
           [&] { makeSocket(output); },
           [&] { fs::create_symlink(output, output); },
           [&] { fs::create_directory_symlink(inside.parent_path(), output); },
       }) {
    put();
    expectRecording(recordUntil("stop\n"), output);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(output)));
    EXPECT_EQ(readFile(inside), "precious");
    fs::remove(output);
  }
}

TEST_F(OutputFile, IsRefusedWhereItCannotBeMade) {
  fs::create_directory(folder / "directory");
  writeFile(folder / "directory/inside.txt", "precious");
  fs::create_directory(folder / "empty");
  writeFile(folder / "file", "precious");
  fs::create_symlink(folder / "nowhere", folder / "dangling");
  options.workingDirectory = folder / "empty";
  const std::set<std::string> before = filesLeft();

  const std::string here = folder.path().string();
  for (const std::string& path : {
           here + "/directory",
           here + "/directory/",
           here + "/empty",
           here + "/file/recording.wav",
           here + "/file/deeper/recording.wav",
           here + "/dangling/recording.wav",
           here + "/empty/..",
           here + "/empty/.",
           here + "/missing/..",
           here + "/missing/recording.wav/.",
           here + "/file\\u0000.wav",
           here + "/new\\u0000/recording.wav",
           std::string(),
           std::string("."),
           std::string(".."),
           std::string("/"),
           std::string("//"),
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

TEST_F(OutputFile, IsRefusedWhereItsPathIsTooLong) {
  const std::string folderOf4096(4096, 'n');
  std::string deep;
  while (deep.size() < 8192) deep += "deeper/";
  options.workingDirectory = folder.path();
  for (const fs::path& path : {folder / folderOf4096 / "a.wav", folder / folderOf4096,
                               folder / deep / "a.wav", fs::path(deep) / "a.wav"}) {
    SCOPED_TRACE(path.string().substr(0, 80));
    expectFailure(converse(startLine(path.string()) + "stop\n"), "");
    EXPECT_EQ(filesLeft(), std::set<std::string>{});
  }
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

TEST_F(OutputFile, OfAnotherProgramOutlivesAFailedRecording) {
  ChildProcess child = launch();
  awaitReady(child);
  writeFile(folder / "other", "precious");
  fs::rename(folder / "other", output);
  child.write("halt\n");
  expectFailure(finish(child), readyLine);
  EXPECT_EQ(readFile(output), "precious");
}

// What is recorded goes on into the file that was made, wherever its name went.
TEST_F(OutputFile, MayBeMovedOrRemovedMeanwhile) {
  const fs::path moved = folder / "moved.wav";
  const fs::path other = folder / "other";
  struct Case {
    const char* name;
    std::function<void()> interfere;
    std::set<std::string> left;
  };
  for (const Case& c : std::vector<Case>{
           {"moved", [&] { fs::rename(output, moved); }, {"moved.wav"}},
           {"removed", [&] { fs::remove(output); }, {}},
           {"replaced", [&] { fs::rename(other, output); }, {"recording.wav"}},
       }) {
    SCOPED_TRACE(c.name);
    ChildProcess child = launch();
    awaitReady(child);
    if (c.left.contains("recording.wav")) writeFile(other, "precious");
    c.interfere();
    child.write("stop\n");
    EXPECT_EQ(finish(child).status, 0);
    EXPECT_EQ(filesLeft(), c.left);
    if (c.left.contains("moved.wav")) {
      EXPECT_NO_THROW((void)readWaveFile(moved));
    }
    if (c.left.contains("recording.wav")) {
      EXPECT_EQ(readFile(output), "precious");
    }
    fs::remove(moved);
  }
}

TEST_F(OutputFile, IsRemovedWhenTheDiskIsFull) {
  const MountedFolder small(folder / "small", 16384);
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
