#include "SidecarTrace.h"

#include "FileHandle.h"
#include "platform/ThreadSafety.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace quenlor {

std::filesystem::path sidecarLogURL;

namespace {

constexpr const char* tag = "[QuenlorHelperAudio] ";

/// Keeps lines whole and in one order in both places: a host may trace from a thread of its own.
platform::Mutex traceMutex;

/// One write where the text surely fits. A longer one goes in pieces that a pipe with room takes at
/// once, so that a reader who does not read never stops the run: what finds no room within patience
/// is dropped.
void writeToStandardError(std::string_view text, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!text.empty()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd writable{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    const int wait = static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
    if (::poll(&writable, 1, wait) != 1) return;
    const ssize_t count =
        ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// Opens the trace file for appending if it is safe to write to: in a folder that others may write
/// to, whoever plants a link or a pipe under its name must not choose what this process writes
/// into. False where nothing is there.
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

/// Makes the trace file with text as its content, whole or not at all.
void createWith(const std::string& text) {
  std::string auxiliary = sidecarLogURL.string() + ".XXXXXX";
  FileHandle file(::mkostemp(auxiliary.data(), O_CLOEXEC));
  if (!file.isOpen()) return;
  try {
    file.write(text);
    file.close();
    if (::rename(auxiliary.c_str(), sidecarLogURL.c_str()) == 0) return;
  } catch (const std::system_error&) {
    // The line is lost; the auxiliary file must not stay behind.
  }
  ::unlink(auxiliary.c_str());
}

void appendLocked(const std::string& text) REQUIRES(traceMutex) {
  if (sidecarLogURL.empty()) return;
  FileHandle file;
  if (!openExisting(file)) return createWith(text);
  if (!file.isOpen()) return;
  try {
    file.write(text);
    file.close();
  } catch (const std::system_error&) {
    // Nobody to tell: this is where troubles are told.
  }
}

/// The current time in UTC as 2026-03-05T14:07:09Z (ISO 8601), a blank, and the message.
std::string timestamped(const std::string& message) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return std::string(text.data()) + ' ' + message;
}

/// Adds a line to the trace file only. line comes without its line feed.
void appendSidecarLogLine(const std::string& line) {
  const platform::MutexLock lock(traceMutex);
  appendLocked(line + '\n');
}

}  // namespace

std::filesystem::path defaultSidecarLogURL() {
  std::error_code failure;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(failure);
  return failure ? std::filesystem::path() : folder / "quenlor-helper-audio.log";
}

void logSidecarTrace(const std::string& message) {
  const platform::MutexLock lock(traceMutex);
  const std::string line = tag + timestamped(message) + '\n';
  writeToStandardError(line, std::chrono::milliseconds(0));
  appendLocked(line);
}

void reportSidecarError(const std::string& message) {
  // The last line is the one the parent needs: a reader that is merely slow gets a second.
  writeToStandardError(message + '\n', std::chrono::seconds(1));
  appendSidecarLogLine(tag + timestamped("Error: " + message));
}

}  // namespace quenlor
