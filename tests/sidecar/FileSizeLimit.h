#pragma once

#include <csignal>
#include <pthread.h>
#include <sys/resource.h>

namespace quenlor::test {

/// Limits how large files may grow, as a full disk would, with the signal that a write beyond the
/// limit would bring blocked.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{bytes, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before{};
};

}  // namespace quenlor::test
