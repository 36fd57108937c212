// What a program inherits from its parent besides streams: the working folder and the file mask.

#include "tests/conversation/Conversation.h"

#include <string>
#include <sys/stat.h>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;

using Surroundings = Conversation;

// The mask of this process and its children, until the end of a scope.
class FileMask {
 public:
  explicit FileMask(mode_t mask) : before(umask(mask)) {}
  ~FileMask() { umask(before); }
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;

 private:
  mode_t before;
};

unsigned modeOf(const fs::path& path) {
  struct stat state {};
  EXPECT_EQ(stat(path.c_str(), &state), 0) << path;
  return state.st_mode & 07777;
}

TEST_F(Surroundings, MaskDecidesOnTheRecordingButNotOnTheTrace) {
  output = folder / "new/recording.wav";
  for (const mode_t mask : {0U, 022U, 077U}) {
    {
      const FileMask inherited(mask);
      expectRecording(recordUntil("stop\n"), output);
    }
    EXPECT_EQ(modeOf(output), 0666U & ~mask);
    EXPECT_EQ(modeOf(output.parent_path()), 0777U & ~mask);
    EXPECT_EQ(modeOf(traceFile), 0600U);
    fs::remove_all(output.parent_path());
    fs::remove(traceFile);
  }
}

TEST_F(Surroundings, WorkingFolderMayBeGone) {
  const fs::path gone = folder / "gone";
  const fs::path before = fs::current_path();
  fs::create_directory(gone);
  fs::current_path(gone);
  fs::remove(gone);
  const Outcome absolute = recordUntil("stop\n");
  const Outcome relative = converse(startLine("relative.wav") + "stop\n");
  fs::current_path(before);

  expectRecording(absolute, output);
  EXPECT_EQ(expectFailure(relative, ""),
            "Finding the working folder for \"relative.wav\" failed: No such file or directory");
  EXPECT_EQ(filesLeft(), std::set<std::string>{"recording.wav"});
}

}  // namespace

}  // namespace quenlor::test
