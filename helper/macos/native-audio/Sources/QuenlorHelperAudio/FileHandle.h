#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quenlor {

/// Writes all of bytes to a descriptor, in one write call where the system takes them in one. Waits
/// for room as long as it takes. Throws std::system_error with the write's errno, and with EIO
/// where a write takes nothing.
void writeAll(int descriptor, std::span<const std::byte> bytes);

/// A file descriptor for writing, owned, or none. Errors are std::system_errors with errno.
class FileHandle {
 public:
  FileHandle() = default;
  /// Takes over descriptor; a negative one means none.
  explicit FileHandle(int openDescriptor) : descriptor(openDescriptor) {}
  ~FileHandle();
  FileHandle(FileHandle&& other) noexcept;
  /// Closes what was open here, and looks at no error.
  FileHandle& operator=(FileHandle&& other) noexcept;

  bool isOpen() const { return descriptor >= 0; }
  int fileDescriptor() const { return descriptor; }

  // A closed handle fails these three with EBADF.

  /// At the current position.
  void write(std::span<const std::byte> bytes);
  void write(std::string_view text);
  void seekToStart();

  /// The handle is closed afterwards even where this throws: what the system still had to write may
  /// be lost, but the descriptor is gone either way.
  void close();

 private:
  int descriptor = -1;
};

}  // namespace quenlor
