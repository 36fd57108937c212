#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quenlor {

/// Writes all bytes to a descriptor, in one write call if the system takes them all. Waits for
/// space without a timeout. Throws std::system_error with the errno of the write, or with EIO if a
/// write returns 0.
void writeAll(int descriptor, std::span<const std::byte> bytes);

/// A file descriptor for writing, owned, or none. Errors are std::system_errors with errno.
class FileHandle {
 public:
  FileHandle() = default;
  /// Takes over descriptor; a negative one means none.
  explicit FileHandle(int openDescriptor) : descriptor(openDescriptor) {}
  ~FileHandle();
  FileHandle(FileHandle&& other) noexcept;
  /// Closes the file that was open here and ignores errors.
  FileHandle& operator=(FileHandle&& other) noexcept;

  bool isOpen() const { return descriptor >= 0; }
  int fileDescriptor() const { return descriptor; }

  // A closed handle fails these three with EBADF.

  /// At the current position.
  void write(std::span<const std::byte> bytes);
  void write(std::string_view text);
  void seekToStart();

  /// The handle is closed even if this throws: data that the system had not written yet may be
  /// lost, but the descriptor is released either way.
  void close();

 private:
  int descriptor = -1;
};

}  // namespace quenlor
