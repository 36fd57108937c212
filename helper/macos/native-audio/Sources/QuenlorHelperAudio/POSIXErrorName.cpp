#include "POSIXErrorName.h"

#include <cerrno>
#include <cstring>

namespace quenlor {

std::string posixErrorName(int code) {
#if defined(__GLIBC__)
  if (const char* name = strerrorname_np(code); name != nullptr && code != 0) return name;
#else
  // Those that reading gives; only glibc knows all.
  switch (code) {
    case EAGAIN:
      return "EAGAIN";
    case EBADF:
      return "EBADF";
    case EFAULT:
      return "EFAULT";
    case EINVAL:
      return "EINVAL";
    case EIO:
      return "EIO";
    case EISDIR:
      return "EISDIR";
    case ENOMEM:
      return "ENOMEM";
    case ENXIO:
      return "ENXIO";
    default:
      break;
  }
#endif
  return "errno " + std::to_string(code);
}

}  // namespace quenlor
