#include "SidecarTrace.h"

#include "FileHandle.h"
#include "platform/ThreadSafety.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quenlor {

namespace {

constexpr const char* tag = "[QuenlorHelperAudio] ";

/// The trace file. Set before any thread exists; while it is empty there is none.
std::filesystem::path sidecarLogURL;

/// Keeps lines in one order in both places: a host may trace from a thread of its own.
platform::Mutex traceMutex;

/// Whether the last line on standard error broke off for want of room.
bool lineIsCut GUARDED_BY(traceMutex) = false;

/// One write where the text surely fits. A longer one goes in pieces that a pipe with room takes at
/// once, so that a reader who does not read never stops the run. Gives how many bytes found room
/// within patience.
std::size_t writeWhatFits(std::string_view text, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::size_t written = 0;
  while (written < text.size()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd writable{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    const int wait = static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
    if (::poll(&writable, 1, wait) != 1) break;
    const std::string_view piece = text.substr(written, PIPE_BUF);
    const ssize_t count = ::write(STDERR_FILENO, piece.data(), piece.size());
    if (count <= 0) break;
    written += static_cast<std::size_t>(count);
  }
  return written;
}

/// line comes with its line feed. It must not become the rest of a line that was cut.
void writeToStandardError(std::string_view line, std::chrono::milliseconds patience)
    REQUIRES(traceMutex) {
  if (lineIsCut && writeWhatFits("\n", patience) == 0) return;
  const std::size_t written = writeWhatFits(line, patience);
  lineIsCut = written > 0 && written < line.size();
}

/// Opens the trace file for appending if it is safe to write to: in a folder that others may write
/// to, whoever plants a link or a pipe under its name must not choose what this process writes
/// into. True where something has its name, though file stays closed unless that is safe; false
/// where nothing has it, and the file may be made.
bool openExisting(FileHandle& file) {
  const int flags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const int descriptor = ::open(sidecarLogURL.c_str(), flags);
  if (descriptor < 0) return errno != ENOENT;
  FileHandle opened(descriptor);
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return true;
  if (!S_ISREG(status.st_mode) || status.st_nlink != 1 || status.st_uid != ::geteuid()) return true;
  file = std::move(opened);
  return true;
}

/// Gives a file a name that no file has, in one step. False where that fails, as for a name that is
/// taken. (A hard link would give the file two names for a moment, and openExisting() refuses
/// that.)
bool renameUnlessTaken(const char* from, const char* to) {
#if defined(__linux__)
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
  // Where the file system cannot do this, a file that another process has just made is lost.
  return errno == EINVAL && ::rename(from, to) == 0;
#else
  return ::renamex_np(from, to, RENAME_EXCL) == 0;
#endif
}

/// Makes the trace file with text as its content, whole or not at all. False where it was not made:
/// another process may have been first.
bool createWith(const std::string& text) {
  std::string auxiliary = sidecarLogURL.string() + ".XXXXXX";
  FileHandle file(::mkostemp(auxiliary.data(), O_CLOEXEC));
  if (!file.isOpen()) return false;
  try {
    file.write(text);
    file.close();
    if (renameUnlessTaken(auxiliary.c_str(), sidecarLogURL.c_str())) return true;
  } catch (...) {
    // The line is lost; the auxiliary file must not stay behind.
  }
  ::unlink(auxiliary.c_str());
  return false;
}

/// Adds a line, which comes without its line feed, to the trace file.
void appendSidecarLogLine(const std::string& line) noexcept REQUIRES(traceMutex) {
  if (sidecarLogURL.empty()) return;
  try {
    const std::string text = line + '\n';
    FileHandle file;
    if (!openExisting(file) && (createWith(text) || !openExisting(file))) return;
    if (!file.isOpen()) return;
    file.write(text);
    file.close();
  } catch (...) {
    // Nobody to tell: this is where troubles are told.
  }
}

/// The current time in UTC as 2026-03-05T14:07:09Z (ISO 8601), a blank, and the message. The C
/// library's gmtime() would count leap seconds in a time zone that does.
std::string timestamped(std::string_view message) {
  namespace chrono = std::chrono;
  const auto now = chrono::floor<chrono::seconds>(chrono::system_clock::now());
  const auto today = chrono::floor<chrono::days>(now);
  const chrono::year_month_day date(today);
  const chrono::hh_mm_ss time(now - today);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ ", int(date.year()),
                unsigned(date.month()), unsigned(date.day()), int(time.hours().count()),
                int(time.minutes().count()), int(time.seconds().count()));
  return std::string(text.data()).append(message);
}

}  // namespace

void locateSidecarLog(const std::filesystem::path& temporaryFolder) {
  if (!temporaryFolder.empty()) sidecarLogURL = temporaryFolder / "quenlor-helper-audio.log";
}

void logSidecarTrace(std::string_view message) noexcept {
  const platform::MutexLock lock(traceMutex);
  try {
    const std::string line = tag + timestamped(message);
    writeToStandardError(line + '\n', std::chrono::milliseconds(0));
    appendSidecarLogLine(line);
  } catch (...) {
    // Only memory can fail here, and a line is no reason to end a recording.
  }
}

void reportSidecarError(std::string_view message) noexcept {
  // The last line is the one the parent needs: a reader that is merely slow gets a second.
  constexpr std::chrono::seconds patience(1);
  const platform::MutexLock lock(traceMutex);
  try {
    writeToStandardError(std::string(message) + '\n', patience);
  } catch (...) {
    writeToStandardError("Memory has run out.\n", patience);
  }
  try {
    appendSidecarLogLine(tag + timestamped("Error: " + std::string(message)));
  } catch (...) {
    // As above; the line that counts is out.
  }
}

}  // namespace quenlor
