#include "POSIXErrorName.h"

#include <cstring>

namespace quenlor {

std::string posixErrorName(int code) {
#if defined(__GLIBC__)
  if (const char* name = strerrorname_np(code); name != nullptr && code != 0) return name;
#endif
  return "errno " + std::to_string(code);
}

}  // namespace quenlor
