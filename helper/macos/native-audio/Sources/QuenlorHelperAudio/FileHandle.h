#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quenlor {

/// Writes all of bytes to a descriptor: one write call unless it comes short, is interrupted,
/// or has to wait for room.
/// Throws std::system_error with errno.
void writeAll(int descriptor, std::span<const std::byte> bytes);

/// An open file descriptor for writing, owned. Errors are std::system_errors with errno.
class FileHandle {
 public:
  FileHandle() = default;
  /// Takes over descriptor; a negative one means none.
  explicit FileHandle(int openDescriptor) : descriptor(openDescriptor) {}
  ~FileHandle();
  FileHandle(FileHandle&& other) noexcept;
  FileHandle& operator=(FileHandle&& other) noexcept;

  bool isOpen() const { return descriptor >= 0; }
  int fileDescriptor() const { return descriptor; }

  /// At the current position. On a closed handle this fails with EBADF.
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
