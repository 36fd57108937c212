#include "recorder/Pipe.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace quenlor::recorder {

Pipe::Pipe() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0)
    throw std::system_error(errno, std::generic_category(), "Making a pipe failed");
  readEnd = FileHandle(ends[0]);
  writeEnd = FileHandle(ends[1]);
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
}

}  // namespace quenlor::recorder
