// quenlor-wav-repair on recordings whose recorder was killed, and on what is no recording.

#include "tests/support/ChildProcess.h"
#include "tests/support/MountedFolder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

struct Outcome {
  int status;
  std::string output;
  std::string errors;
};

std::string littleEndian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}

// A header with any sizes, followed by bytes that are no samples of silence.
std::string recording(std::uint32_t riffSize, std::uint32_t dataSize, std::size_t byteCount) {
  std::string bytes = "RIFF" + littleEndian(riffSize);
  bytes += "WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xBB\0\0\x00\xEE\x02\0\x04\0\x10\0data"sv;
  bytes += littleEndian(dataSize);
  for (std::size_t i = 0; i < byteCount; ++i) bytes += static_cast<char>(i * 37 % 251);
  return bytes;
}

std::string withByte(std::string bytes, std::size_t offset, char value) {
  bytes.at(offset) = value;
  return bytes;
}

class Repair : public testing::Test {
 protected:
  static Outcome run(std::vector<std::string> arguments) {
    ChildOptions options;
    options.arguments = std::move(arguments);
    ChildProcess child(QUENLOR_REPAIR_PATH, options);
    const int status = child.waitForExit();
    return {status, child.standardOutput(), child.standardError()};
  }

  void write(std::string_view bytes) const {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
  }

  [[nodiscard]] std::string read(std::size_t limit = std::string::npos) const {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(std::min<std::size_t>(limit, fs::file_size(file)), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
  }

  // Status 1, nothing on standard output, one line on standard error with the reason.
  static void expectRefusal(const fs::path& path, std::string_view reason) {
    const Outcome outcome = run({path.string()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(std::ranges::count(outcome.errors, '\n'), 1) << outcome.errors;
    EXPECT_TRUE(outcome.errors.ends_with(": " + std::string(reason) + "\n")) << outcome.errors;
  }

  TemporaryFolder folder;
  fs::path file = folder / "recording.wav";
};

TEST_F(Repair, SetsTheSizesAndNothingElse) {
  struct Case {
    const char* name;
    std::uint32_t riffSize, dataSize;
    std::size_t byteCount;
    const char* told;
  };
  for (const Case& c : {
           Case{"killed while recording", 36, 0, 4000, "the sizes were set: 1000 frames\n"},
           Case{"appended to", 4036, 4000, 8000, "the sizes were set: 2000 frames\n"},
           Case{"cut off", 8036, 8000, 4000, "the sizes were set: 1000 frames\n"},
           Case{"cut off to the header", 8036, 8000, 0, "the sizes were set: 0 frames\n"},
           Case{"only one size set", 4036, 0, 4000, "the sizes were set: 1000 frames\n"},
           Case{"only the other size set", 36, 4000, 4000, "the sizes were set: 1000 frames\n"},
           Case{"sizes of nonsense", 0, 0xFFFFFFFF, 4, "the sizes were set: 1 frames\n"},
           Case{"sound", 4036, 4000, 4000, "the sizes are right already: 1000 frames\n"},
           Case{"sound and empty", 36, 0, 0, "the sizes are right already: 0 frames\n"},
       }) {
    SCOPED_TRACE(c.name);
    write(recording(c.riffSize, c.dataSize, c.byteCount));
    const Outcome outcome = run({file.string()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, file.string() + ": " + c.told);
    EXPECT_EQ(outcome.errors, "");
    const auto size = static_cast<std::uint32_t>(c.byteCount);
    EXPECT_EQ(read(), recording(size + 36, size, c.byteCount));
    EXPECT_NO_THROW((void)readWaveFile(file));
  }
}

TEST_F(Repair, KeepsAPartOfAFrameWithoutCountingIt) {
  for (const std::size_t rest : {1U, 2U, 3U}) {
    write(recording(36, 0, 4000 + rest));
    EXPECT_EQ(run({file.string()}).output,
              file.string() +
                  ": the sizes were set: 1000 frames, and a part of one that is not counted\n");
    EXPECT_EQ(read(), recording(4036, 4000, 4000 + rest));
    EXPECT_NE(run({file.string()}).output.find("right already"), std::string::npos);
  }
}

TEST_F(Repair, StopsAtTheLargestSizesThatTheHeaderHolds) {
  constexpr std::uint64_t wholeRange = std::uint64_t{1} << 32;
  struct Case {
    std::uint64_t length;
    std::uint32_t riffSize, dataSize;
  };
  // Files with holes: they take no room.
  for (const Case& c : {
           Case{wholeRange, 0xFFFFFFF8, 0xFFFFFFD4},
           Case{wholeRange + 8, 0xFFFFFFFF, 0xFFFFFFDC},
           Case{wholeRange + 44, 0xFFFFFFFF, 0xFFFFFFFF},
           Case{wholeRange * 3, 0xFFFFFFFF, 0xFFFFFFFF},
       }) {
    SCOPED_TRACE(c.length);
    write(recording(36, 0, 8));
    fs::resize_file(file, c.length);
    const Outcome outcome = run({file.string()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(read(52), recording(c.riffSize, c.dataSize, 8));
    EXPECT_EQ(fs::file_size(file), c.length);
  }
}

TEST_F(Repair, LeavesOtherFilesAlone) {
  constexpr std::string_view foreign =
      "Not a 16-bit stereo recording at 48 kHz with a 44-byte header";
  const std::string sound = recording(36, 0, 400);
  const std::string wideFormat =
      std::string(sound).replace(16, 4, littleEndian(18)).insert(36, 2, '\0');
  const std::string fact = std::string(sound).insert(36, "fact\x04\0\0\0\0\0\0\0"sv);
  const std::vector<std::pair<std::string, std::string_view>> cases = {
      {"", "Too short for a recording"},
      {sound.substr(0, 43), "Too short for a recording"},
      {withByte(sound, 3, 'X'), foreign},    // RIFX: big-endian
      {withByte(sound, 8, 'w'), foreign},    // not WAVE
      {withByte(sound, 15, '\0'), foreign},  // not the format's chunk
      {withByte(sound, 20, 3), foreign},     // float samples
      {withByte(sound, 22, 1), foreign},     // one channel
      {withByte(sound, 24, 'D'), foreign},   // another rate
      {withByte(sound, 28, 1), foreign},     // a byte rate that does not fit
      {withByte(sound, 32, 8), foreign},     // a frame size that does not fit
      {withByte(sound, 34, 24), foreign},    // another width
      {withByte(sound, 36, 'L'), foreign},   // another chunk before the samples
      {wideFormat, foreign},
      {fact, foreign},
      {std::string(1000, '\0'), foreign},
  };
  for (const auto& [bytes, reason] : cases) {
    SCOPED_TRACE(bytes.substr(0, 48));
    write(bytes);
    expectRefusal(file, reason);
    EXPECT_EQ(read(), bytes);
  }
}

TEST_F(Repair, RefusesWhatIsNoFile) {
  expectRefusal(file, "No such file or directory");
  expectRefusal("", "No such file or directory");
  expectRefusal(folder.path(), "Not a regular file");
  expectRefusal("/dev/null", "Not a regular file");
  expectRefusal(folder / std::string(300, 'n'), "File name too long");
  expectRefusal(folder / "two\nlines", "No such file or directory");
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  expectRefusal(file, "Not a regular file");
}

TEST_F(Repair, RefusesWhatItMayNotWrite) {
  const MountedFolder mount(folder / "mount", 65536);
  if (!mount.isMounted()) GTEST_SKIP() << "Mounting a file system is not permitted here.";
  file = folder / "mount/recording.wav";
  const std::string bytes = recording(36, 0, 400);
  write(bytes);
  mount.makeReadOnly();
  expectRefusal(file, "Read-only file system");
  EXPECT_EQ(read(), bytes);
}

TEST_F(Repair, TellsItsUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--help"}, {"a.wav", "b.wav"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.starts_with("Usage: quenlor-wav-repair FILE\n")) << outcome.errors;
  }
}

}  // namespace

}  // namespace quenlor::test
