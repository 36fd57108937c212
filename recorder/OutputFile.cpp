#include "recorder/OutputFile.h"

#include "FileHandle.h"
#include "WaveWriter.h"
#include "recorder/Format.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor::recorder {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
  throw std::runtime_error(printable(path.string()) + ' ' + why);
}

std::string nameOfKind(fs::file_type type) {
  switch (type) {
    case fs::file_type::directory:
      return "a folder";
    case fs::file_type::block:
    case fs::file_type::character:
      return "a device";
    case fs::file_type::fifo:
      return "a named pipe";
    case fs::file_type::socket:
      return "a socket";
    default:
      return "no regular file";
  }
}

/// Whether a file stands at path, or a link, which then is what gets replaced.
bool isTaken(const fs::path& path) {
  std::error_code code;
  const fs::file_status own = fs::symlink_status(path, code);
  if (own.type() == fs::file_type::none) refuse(path, "cannot be made: " + code.message());
  if (!fs::exists(own)) return false;
  const fs::file_status named = fs::status(path, code);
  if (fs::exists(named) && !fs::is_regular_file(named))
    refuse(path, "is " + nameOfKind(named.type()) + "; a recording needs a regular file");
  return true;
}

/// Renames a file, within its folder, to a new name that starts with its own. Throws
/// std::system_error.
fs::path renameAside(const fs::path& file, const char* ending) {
  std::string name = file.string() + ending + "-XXXXXX";
  // The empty file that this makes keeps the name until the other takes it.
  const FileHandle placeholder(::mkostemp(name.data(), O_CLOEXEC));
  if (!placeholder.isOpen()) throw std::system_error(errno, std::generic_category());
  if (::rename(file.c_str(), name.c_str()) == 0) return name;
  const int error = errno;
  ::unlink(name.c_str());
  throw std::system_error(error, std::generic_category());
}

/// Whether the sidecar made the file and wrote at most its header.
bool isEmptyRecording(const fs::path& path) {
  std::array<char, WaveWriter::headerSize + 1> start{};
  const FileHandle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  const ssize_t count =
      file.isOpen() ? ::read(file.fileDescriptor(), start.data(), start.size()) : -1;
  if (count < 0 || count > static_cast<ssize_t>(WaveWriter::headerSize)) return false;
  return count == 0 || std::string_view(start.data(), start.size()).starts_with("RIFF");
}

}  // namespace

OutputFile::OutputFile(fs::path path, bool replacesEarlier) : recording(std::move(path)) {
  if (!isTaken(recording)) return;
  if (!replacesEarlier) refuse(recording, "exists; --force replaces it");
  try {
    earlierFile = renameAside(recording, ".earlier");
  } catch (const std::system_error& error) {
    refuse(recording, "cannot be replaced: " + error.code().message());
  }
}

OutputFile::~OutputFile() {
  if (!isSettled) fail();
}

void OutputFile::complete() {
  isSettled = true;
  if (!earlierFile.empty()) ::unlink(earlierFile.c_str());
}

std::optional<fs::path> OutputFile::fail() {
  isSettled = true;
  if (isEmptyRecording(recording)) ::unlink(recording.c_str());
  std::optional<fs::path> unfinished;
  std::error_code code;
  if (fs::exists(fs::symlink_status(recording, code))) unfinished = recording;
  if (earlierFile.empty()) return unfinished;
  try {
    if (unfinished) unfinished = renameAside(recording, ".unfinished");
    fs::rename(earlierFile, recording);
    earlierFile = recording;
  } catch (const std::system_error&) {
    // No recording is given up for another's name.
  }
  return unfinished;
}

std::string OutputFile::creationError() const {
  const FileHandle file(::open(recording.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file.isOpen()) return std::generic_category().message(errno);
  ::unlink(recording.c_str());
  return {};
}

}  // namespace quenlor::recorder
