#include "tests/support/MountedFolder.h"

#include <cerrno>
#include <sys/mount.h>
#include <system_error>
#include <utility>

namespace quenlor::test {

MountedFolder::MountedFolder(std::filesystem::path where, std::size_t size)
    : folder(std::move(where)) {
  std::filesystem::create_directory(folder);
  const std::string options = "size=" + std::to_string(size);
  mounted = mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

MountedFolder::~MountedFolder() {
  if (mounted) umount2(folder.c_str(), MNT_DETACH);
}

void MountedFolder::makeReadOnly() const {
  if (mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "mount " + folder.string());
}

}  // namespace quenlor::test
