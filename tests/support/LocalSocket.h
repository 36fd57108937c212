#pragma once

#include "FileHandle.h"

#include <cerrno>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

namespace quenlor::test {

/// A socket at a path, which stays there. It takes connections and never answers, as a server that
/// hangs, until the end of its scope.
class LocalSocket {
 public:
  /// Throws std::system_error.
  explicit LocalSocket(const std::filesystem::path& path) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(handle.fileDescriptor(), reinterpret_cast<const sockaddr*>(&address),
               sizeof address) != 0 ||
        ::listen(handle.fileDescriptor(), 8) != 0)
      throw std::system_error(errno, std::generic_category(), "A socket at " + path.string());
  }

 private:
  FileHandle handle{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

}  // namespace quenlor::test
