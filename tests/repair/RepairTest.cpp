// quenlor-wav-repair on recordings whose recorder was killed, and on what is no recording.

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace quenlor::test {

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

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
    arguments.insert(arguments.begin(), QUENLOR_REPAIR_PATH);
    ChildProcess child(arguments);
    return finish(child);
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
  const std::string set = "the sizes were set: ";
  const std::string right = "the sizes are right already: ";
  const std::string part = ", and a part of one that is not counted\n";
  const struct {
    const char* name;
    std::uint32_t riffSize, dataSize;
    std::size_t byteCount;
    std::string told;
  } cases[] = {
      {"killed while recording", 36, 0, 4000, set + "1000 frames\n"},
      {"killed while writing a frame", 36, 0, 4001, set + "1000 frames" + part},
      {"killed at the end of a frame", 36, 0, 4003, set + "1000 frames" + part},
      {"appended to", 4036, 4000, 8000, set + "2000 frames\n"},
      {"cut off", 8036, 8000, 4000, set + "1000 frames\n"},
      {"cut off to the header", 8036, 8000, 0, set + "0 frames\n"},
      {"only one size set", 4036, 0, 4000, set + "1000 frames\n"},
      {"only the other size set", 36, 4000, 4000, set + "1000 frames\n"},
      {"sizes of nonsense", 0, 0xFFFFFFFF, 4, set + "1 frames\n"},
      {"sound", 4036, 4000, 4000, right + "1000 frames\n"},
      {"sound and empty", 36, 0, 0, right + "0 frames\n"},
      {"sound with a part of a frame", 4036, 4000, 4002, right + "1000 frames" + part},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeFile(file, recording(c.riffSize, c.dataSize, c.byteCount));
    const Outcome outcome = run({file.string()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, file.string() + ": " + c.told);
    EXPECT_EQ(outcome.errors, "");
    const auto size = static_cast<std::uint32_t>(c.byteCount / 4 * 4);
    EXPECT_EQ(readFile(file), recording(size + 36, size, c.byteCount));
  }
}

TEST_F(Repair, StopsAtTheLargestSizesThatTheHeaderHolds) {
  constexpr std::uint64_t wholeRange = std::uint64_t{1} << 32;
  const struct {
    std::uint64_t length;
    std::uint32_t riffSize, dataSize;
  } cases[] = {{wholeRange, 0xFFFFFFF8, 0xFFFFFFD4},
               {wholeRange + 8, 0xFFFFFFFF, 0xFFFFFFDC},
               {wholeRange * 3, 0xFFFFFFFF, 0xFFFFFFFF}};
  for (const auto& [length, riffSize, dataSize] : cases) {
    SCOPED_TRACE(length);
    writeFile(file, recording(36, 0, 8));
    fs::resize_file(file, length);  // with a hole: it takes no room
    EXPECT_EQ(run({file.string()}).status, 0);
    std::string start(52, '\0');
    std::ifstream(file, std::ios::binary).read(start.data(), 52);
    EXPECT_EQ(start, recording(riffSize, dataSize, 8));
    EXPECT_EQ(fs::file_size(file), length);
  }
}

TEST_F(Repair, LeavesOtherFilesAlone) {
  constexpr std::string_view foreign =
      "Not a 16-bit stereo recording at 48 kHz with a 44-byte header";
  const std::string sound = recording(36, 0, 400);
  const std::vector<std::pair<std::string, std::string_view>> cases = {
      {"", "Too short for a recording"},   {sound.substr(0, 43), "Too short for a recording"},
      {withByte(sound, 3, 'X'), foreign},   // RIFX: big-endian
      {withByte(sound, 8, 'w'), foreign},   // not WAVE
      {withByte(sound, 20, 3), foreign},    // float samples
      {withByte(sound, 22, 1), foreign},    // one channel
      {withByte(sound, 24, 'D'), foreign},  // another rate
      {withByte(sound, 32, 8), foreign},    // a frame size that does not fit
      {withByte(sound, 34, 24), foreign},   // another width
      {std::string(1000, '\0'), foreign},
  };
  for (const auto& [bytes, reason] : cases) {
    SCOPED_TRACE(bytes.substr(0, 48));
    writeFile(file, bytes);
    expectRefusal(file, reason);
    EXPECT_EQ(readFile(file), bytes);
  }
}

TEST_F(Repair, RefusesWhatIsNoFileOrMayNotBeWritten) {
  expectRefusal(file, "No such file or directory");
  expectRefusal("", "No such file or directory");
  expectRefusal(folder.path(), "Not a regular file");
  expectRefusal("/dev/null", "Not a regular file");
  expectRefusal(folder / std::string(300, 'n'), "File name too long");
  expectRefusal(folder / "two\nlines", "No such file or directory");
  expectRefusal(QUENLOR_REPAIR_PATH, "Text file busy");  // itself, as it runs
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  expectRefusal(file, "Not a regular file");
}

TEST_F(Repair, TellsItsUsageAndVersion) {
  const std::string usage = "Usage: quenlor-wav-repair FILE\n";
  const std::string version = "quenlor-wav-repair ";
  for (const auto& [option, answer] :
       {std::pair{"--help", usage}, {"-h", usage}, {"--version", version}, {"-V", version}}) {
    const Outcome outcome = run({option});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.output.starts_with(answer)) << outcome.output;
    EXPECT_EQ(outcome.errors, "");
  }
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"--unknown"}, {"a.wav", "b.wav"}, {"--help", "a.wav"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.starts_with(usage)) << outcome.errors;
  }
}

}  // namespace

}  // namespace quenlor::test
