#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace quenlor::test {

namespace {

TEST(ProgramPath, LeadsToTheSidecarBesideTheProgramAlsoThroughALink) {
  const TemporaryFolder folder;
  const std::filesystem::path programs = folder / "programs";
  std::filesystem::create_directory(programs);
  std::filesystem::copy_file(QUENLOR_RECORD_PATH, programs / "quenlor-record");
  std::filesystem::create_symlink(QUENLOR_SIDECAR_PATH, programs / "QuenlorHelperAudio");
  std::filesystem::create_symlink("programs/quenlor-record", folder / "link");
  ChildProcess child({folder / "link", "--seconds", "0.1", "recording.wav"},
                     "cd '" + folder.path().string() + "'; export PATH= TMPDIR=\"$PWD\"");
  EXPECT_EQ(child.waitForExit(), 0) << child.standardError();
  EXPECT_TRUE(std::filesystem::exists(folder / "recording.wav"));
}

}  // namespace

}  // namespace quenlor::test
