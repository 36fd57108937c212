#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <system_error>
#include <utility>

namespace quenlor::test {

/// A small file system in memory, mounted on a new folder until the end of a scope. Mounting takes
/// privileges: tests skip where isMounted() is false.
class MountedFolder {
 public:
  /// size is in bytes; the system rounds it up to whole pages.
  MountedFolder(std::filesystem::path where, std::size_t size) : folder(std::move(where)) {
    std::filesystem::create_directory(folder);
    const std::string options = "size=" + std::to_string(size);
    mounted = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }
  ~MountedFolder() {
    if (mounted) ::umount2(folder.c_str(), MNT_DETACH);
  }
  MountedFolder(const MountedFolder&) = delete;
  MountedFolder& operator=(const MountedFolder&) = delete;

  [[nodiscard]] bool isMounted() const { return mounted; }
  /// From here on nothing can be changed in it, by root neither. Throws std::system_error.
  void makeReadOnly() const {
    if (::mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
      throw std::system_error(errno, std::generic_category(), "mount " + folder.string());
  }

 private:
  const std::filesystem::path folder;
  bool mounted = false;
};

}  // namespace quenlor::test
