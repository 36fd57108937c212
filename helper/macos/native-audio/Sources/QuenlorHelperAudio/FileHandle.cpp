#include "FileHandle.h"

#include <cerrno>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor {

namespace {

[[noreturn]] void throwErrno() {
  throw std::system_error(errno, std::generic_category());
}

/// Whether to retry a failed write. Waits for space if there was none.
bool mayRetry(int descriptor) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
  pollfd writable{.fd = descriptor, .events = POLLOUT, .revents = 0};
  return ::poll(&writable, 1, -1) >= 0 || errno == EINTR;
}

}  // namespace

void writeAll(int descriptor, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count > 0)
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    else if (count == 0)
      throw std::system_error(EIO, std::generic_category());  // Otherwise this would loop forever.
    else if (!mayRetry(descriptor))
      throwErrno();
  }
}

FileHandle::~FileHandle() {
  if (isOpen()) ::close(descriptor);
}

FileHandle::FileHandle(FileHandle&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  FileHandle taken(std::move(other));
  std::swap(descriptor, taken.descriptor);
  return *this;
}

void FileHandle::write(std::span<const std::byte> bytes) {
  writeAll(descriptor, bytes);
}

void FileHandle::write(std::string_view text) {
  write(std::as_bytes(std::span(text)));
}

void FileHandle::seekToStart() {
  if (::lseek(descriptor, 0, SEEK_SET) < 0) throwErrno();
}

void FileHandle::close() {
  // An interrupted close has released the descriptor.
  if (::close(std::exchange(descriptor, -1)) != 0 && errno != EINTR) throwErrno();
}

}  // namespace quenlor
