// What stands at a recording's place before and after it.

#include "recorder/OutputFile.h"
#include "tests/support/LocalSocket.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace quenlor::recorder {

namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

class Output : public testing::Test {
 protected:
  std::size_t filesInFolder() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
  }

  const std::string header = "RIFF" + std::string(40, '\0');
  test::TemporaryFolder folder;
  fs::path path = folder / "recording.wav";
};

TEST_F(Output, KeepsTheEarlierFileUntilTheRecordingIsComplete) {
  writeFile(path, "earlier");
  OutputFile file(path, true);
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(filesInFolder(), 1U);
  writeFile(path, header + "new!");
  file.complete();
  EXPECT_EQ(readFile(path), header + "new!");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(Output, BringsTheEarlierFileBack) {
  const std::vector<std::pair<std::string, std::string>> leftBehind = {
      {"nothing", ""}, {"an empty file", "empty"}, {"a header", header}};
  for (const auto& [name, contents] : leftBehind) {
    SCOPED_TRACE(name);
    writeFile(path, "earlier");
    {
      const OutputFile file(path, true);
      if (name != "nothing") writeFile(path, contents == "empty" ? "" : contents);
    }
    EXPECT_EQ(readFile(path), "earlier");
    EXPECT_EQ(filesInFolder(), 1U);
  }
  fs::remove(path);
  fs::create_symlink("nowhere", path);
  EXPECT_EQ(OutputFile(path, true).fail(), std::nullopt);
  EXPECT_EQ(fs::read_symlink(path), "nowhere") << "a link comes back as the link that it was";
}

TEST_F(Output, KeepsAnUnfinishedRecording) {
  const std::string unfinished = header + "heard";
  {
    OutputFile file(path, false);
    writeFile(path, unfinished);
    EXPECT_EQ(file.fail(), path);
  }
  EXPECT_EQ(readFile(path), unfinished);
  OutputFile file(path, true);
  writeFile(path, unfinished + "more");
  const auto other = file.fail();
  ASSERT_TRUE(other);
  EXPECT_EQ(readFile(*other), unfinished + "more");
  EXPECT_EQ(readFile(path), unfinished);
  EXPECT_EQ(filesInFolder(), 2U);
}

TEST_F(Output, IsRefusedWhereNoRecordingMayBe) {
  const fs::path link = folder / "link";
  fs::create_symlink("/dev/null", link);
  fs::create_symlink("loop", folder / "loop");
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  const test::LocalSocket socket(folder / "socket");
  const std::vector<std::pair<fs::path, std::string>> cases = {
      {folder.path(), "is a folder; a recording needs a regular file"},
      {link, "is a device; a recording needs a regular file"},
      {folder / "pipe", "is a named pipe; a recording needs a regular file"},
      {folder / "socket", "is a socket; a recording needs a regular file"},
      {folder / "loop/a.wav", "cannot be made: Too many levels of symbolic links"},
      {folder / std::string(300, 'n'), "cannot be made: File name too long"},
  };
  for (const auto& [refused, reason] : cases)
    for (const bool replaces : {false, true}) try {
        const OutputFile file(refused, replaces);
        ADD_FAILURE() << refused;
      } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), refused.string() + ' ' + reason);
      }
  EXPECT_EQ(filesInFolder(), 4U);
  writeFile(path, "earlier");
  EXPECT_THROW(OutputFile(path, false), std::runtime_error);
  EXPECT_EQ(readFile(path), "earlier");
  const std::string longest = folder / std::string(250, 'n');
  writeFile(longest, "earlier");
  EXPECT_THROW(OutputFile(longest, true), std::runtime_error) << "no other name is to be had";
  EXPECT_EQ(readFile(longest), "earlier");
}

TEST_F(Output, TellsWhyItCannotBeMade) {
  EXPECT_EQ(OutputFile(path, false).creationError(), "");
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(OutputFile(folder / "missing/a.wav", false).creationError(),
            "No such file or directory");
}

}  // namespace

}  // namespace quenlor::recorder
