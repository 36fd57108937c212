#include "WaveWriter.h"

#include "SampleEncoding.h"
#include "WaveWriterError.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <span>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quenlor {

namespace {

/// path in quotes, without line breaks, for an error line.
std::string quoted(const std::filesystem::path& path) {
  std::string text = path.string();
  std::ranges::replace_if(
      text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return '"' + text + '"';
}

[[noreturn]] void throwFileError(std::error_code code, const std::string& attempt,
                                 const std::filesystem::path& path) {
  throw std::system_error(code, attempt + ' ' + quoted(path) + " failed");
}

/// Runs a file operation and adds to its error what was attempted.
template <typename Operation>
void attempting(const std::string& attempt, const std::filesystem::path& path,
                Operation operation) {
  try {
    operation();
  } catch (const std::system_error& error) {
    throwFileError(error.code(), attempt, path);
  }
}

std::filesystem::path absoluteFilePath(const std::string& outputPath) {
  const std::filesystem::path path(outputPath);
  if (outputPath.find('\0') != std::string::npos)
    throwFileError(std::make_error_code(std::errc::invalid_argument), "Using the path", path);
  if (!path.has_filename() || path.filename() == "." || path.filename() == "..")
    throwFileError(std::make_error_code(std::errc::is_a_directory), "Writing to", path);
  std::error_code code;
  std::filesystem::path absolute = std::filesystem::absolute(path, code);
  if (code) throwFileError(code, "Finding the working folder for", path);
  return absolute;
}

/// Removes a file at path. A symbolic link is removed itself, not its target.
void removeExisting(const std::filesystem::path& path) {
  std::error_code code;
  const std::filesystem::file_status status = std::filesystem::symlink_status(path, code);
  if (!std::filesystem::exists(status)) return;
  if (std::filesystem::is_directory(status))
    throwFileError(std::make_error_code(std::errc::is_a_directory), "Replacing", path);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT)
    throwFileError(std::error_code(errno, std::generic_category()), "Replacing", path);
}

/// Creates and opens in one call, so that the file written to is the one created.
FileHandle createFile(const std::filesystem::path& path) {
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) throw WaveWriterError::outputFileHandleUnavailable();
  return FileHandle(descriptor);
}

}  // namespace

WaveWriter::WaveWriter(const std::string& outputPath)
    : outputURL(absoluteFilePath(outputPath)),
      targetFormat(platform::AudioFormat::float32(targetSampleRate, targetChannelCount, false)) {
  std::error_code code;
  std::filesystem::create_directories(outputURL.parent_path(), code);
  if (code) throwFileError(code, "Creating the folder", outputURL.parent_path());
  removeExisting(outputURL);
  handle = createFile(outputURL);
  struct stat status {};
  if (::fstat(handle.fileDescriptor(), &status) == 0) {
    device = status.st_dev;
    inode = status.st_ino;
  }
  attempting("Writing to", outputURL, [&] { writeHeader(); });
}

void WaveWriter::append(const std::vector<float>& left, const std::vector<float>& right,
                        std::int64_t frames) {
  if (!std::in_range<std::size_t>(frames)) throw WaveWriterError::invalidTargetFormat();
  const auto count = static_cast<std::size_t>(frames);
  if (count > left.size() || count > right.size()) throw WaveWriterError::invalidTargetFormat();

  if (stored.size() < count) stored.resize(count);
  const std::span encoded(stored.data(), count);
  encodeFrames({left.data(), count}, {right.data(), count}, encoded);
  const std::span<const std::byte> bytes = std::as_bytes(encoded);
  attempting("Writing to", outputURL, [&] { handle.write(bytes); });
  dataByteCount += bytes.size();
  frameCount += count;
}

StopResult WaveWriter::finalize(double durationSeconds) {
  if (!didFinalize) {
    attempting("Finishing", outputURL, [&] {
      handle.seekToStart();
      writeHeader();
      handle.close();
    });
    didFinalize = true;
  }
  return {.durationSeconds =
              std::max(durationSeconds, static_cast<double>(frameCount) / targetSampleRate),
          .sizeBytes = dataByteCount + headerSize};
}

void WaveWriter::discard() noexcept {
  // Compared before closing: after that, another file could get the same inode.
  const bool ours = pathNamesOurFile();
  if (!didFinalize) handle = FileHandle();
  if (ours) ::unlink(outputURL.c_str());
  inode = 0;  // From here on, no file at the path is ours.
  didFinalize = true;
}

bool WaveWriter::pathNamesOurFile() const {
  struct stat status {};
  return ::lstat(outputURL.c_str(), &status) == 0 && status.st_dev == device &&
         status.st_ino == inode;
}

void WaveWriter::writeHeader() {
  handle.write(
      makeHeader(dataByteCount, targetSampleRate, targetChannelCount, storedBitsPerSample));
}

}  // namespace quenlor
