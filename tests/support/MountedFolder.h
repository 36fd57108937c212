#pragma once

#include <filesystem>
#include <string>

namespace quenlor::test {

/// A small file system in memory, mounted on a new folder until the end of a scope. Mounting takes
/// privileges: tests skip where isMounted() is false.
class MountedFolder {
 public:
  /// size is in bytes; the system rounds it up to whole pages.
  MountedFolder(std::filesystem::path where, std::size_t size);
  ~MountedFolder();
  MountedFolder(const MountedFolder&) = delete;
  MountedFolder& operator=(const MountedFolder&) = delete;

  [[nodiscard]] bool isMounted() const { return mounted; }
  /// From here on nothing can be changed in it, by root neither. Throws std::system_error.
  void makeReadOnly() const;

 private:
  std::filesystem::path folder;
  bool mounted = false;
};

}  // namespace quenlor::test
