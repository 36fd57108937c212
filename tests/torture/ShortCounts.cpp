// Preloaded into the program: every read and write comes short. Those of 8 bytes and less go
// through: they are the event loop's, on descriptors that take a whole number or nothing.

#include <cstddef>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

std::size_t shortened(std::size_t count) {
  return count > 8 ? count / 3 : count;
}

}  // namespace

extern "C" ssize_t write(int fd, const void* buf, std::size_t n) {
  return ::syscall(SYS_write, fd, buf, shortened(n));
}

extern "C" ssize_t read(int fd, void* buf, std::size_t nbytes) {
  constexpr std::size_t someOfALine = 9;
  return ::syscall(SYS_read, fd, buf, nbytes > someOfALine ? someOfALine : nbytes);
}
