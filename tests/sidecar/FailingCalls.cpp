#include "FailingCalls.h"

#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <sys/types.h>

namespace {

/// The system's own function of that name.
template <typename Function>
Function* systems(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool isInterrupted() {
  if (quenlor::test::interruptions == 0) return false;
  --quenlor::test::interruptions;
  errno = EINTR;
  return true;
}

}  // namespace

extern "C" ssize_t read(int fd, void* buf, std::size_t nbytes) {
  static auto* const systemRead = systems<ssize_t(int, void*, std::size_t)>("read");
  return isInterrupted() ? -1 : systemRead(fd, buf, nbytes);
}

extern "C" ssize_t write(int fd, const void* buf, std::size_t n) {
  static auto* const systemWrite = systems<ssize_t(int, const void*, std::size_t)>("write");
  return isInterrupted() ? -1 : systemWrite(fd, buf, n);
}

extern "C" int close(int fd) {
  static auto* const systemClose = systems<int(int)>("close");
  const int result = systemClose(fd);
  if (result != 0 || quenlor::test::closeError == 0) return result;
  errno = quenlor::test::closeError;
  return -1;
}
