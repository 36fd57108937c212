#include "POSIXErrorName.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace quenlor {

std::string posixErrorName(int code) {
#if defined(__GLIBC__)
  if (const char* name = strerrorname_np(code); name != nullptr && code != 0) return name;
#else
  // Only glibc can name any error; these are the ones that reading from a file, a terminal, a pipe
  // or a socket gives.
  constexpr std::pair<int, const char*> readErrors[] = {
      {EAGAIN, "EAGAIN"},   {EBADF, "EBADF"},        {ECONNRESET, "ECONNRESET"},
      {EDEADLK, "EDEADLK"}, {EFAULT, "EFAULT"},      {EINVAL, "EINVAL"},
      {EIO, "EIO"},         {EISDIR, "EISDIR"},      {ENOBUFS, "ENOBUFS"},
      {ENOMEM, "ENOMEM"},   {ENOTCONN, "ENOTCONN"},  {ENXIO, "ENXIO"},
      {ESTALE, "ESTALE"},   {ETIMEDOUT, "ETIMEDOUT"}};
  for (const auto& [number, name] : readErrors)
    if (number == code) return name;
#endif
  return "errno " + std::to_string(code);
}

}  // namespace quenlor
