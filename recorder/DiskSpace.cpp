#include "recorder/DiskSpace.h"

#include "WaveWriter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

constexpr auto bytesPerSecond =
    static_cast<std::uint64_t>(WaveWriter::targetSampleRate) * WaveWriter::bytesPerFrame;
constexpr std::uint64_t bytesAhead = DiskSpace::secondsAhead * bytesPerSecond;

bool saysThatThereIsNone(int error) {
  return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

/// Allocates space behind the end of a file without making the file longer. Gives an errno; a file
/// system that cannot do this is one that has another error.
int allocateBehindEnd([[maybe_unused]] int descriptor, [[maybe_unused]] std::uint64_t end) {
#if defined(__linux__)
  const int result = ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(end),
                                 static_cast<off_t>(bytesAhead));
  return result == 0 ? 0 : errno;
#else
  return ENOTSUP;
#endif
}

}  // namespace

DiskSpace::DiskSpace(const std::filesystem::path& recording)
    : file(::open(recording.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)) {}

DiskSpace::~DiskSpace() {
  struct stat status {};
  if (::fstat(file.fileDescriptor(), &status) != 0) return;
  // To the length that it has: what was allocated behind that goes.
  [[maybe_unused]] const int result = ::ftruncate(file.fileDescriptor(), status.st_size);
}

std::error_code DiskSpace::allocateAhead() {
  if (!file.isOpen()) return {};
  if (belowSizeLimit() < bytesAhead) return std::make_error_code(std::errc::file_too_large);
  const std::uint64_t end = size();
  const int error = allocateBehindEnd(file.fileDescriptor(), end);
  if (saysThatThereIsNone(error)) return {error, std::generic_category()};
  if (error == 0) allocatedEnd = end + bytesAhead;
  const bool isFull = error != 0 && available().value_or(bytesAhead) < bytesAhead;
  return isFull ? std::make_error_code(std::errc::no_space_on_device) : std::error_code();
}

std::optional<double> DiskSpace::secondsLeft() const {
  const std::optional<std::uint64_t> onDisk = available();
  if (!file.isOpen() || !onDisk) return std::nullopt;
  const std::uint64_t allocated = allocatedEnd - std::min(allocatedEnd, size());
  return static_cast<double>(std::min(*onDisk + allocated, belowSizeLimit())) / bytesPerSecond;
}

std::uint64_t DiskSpace::size() const {
  struct stat status {};
  return ::fstat(file.fileDescriptor(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size)
                                                      : 0;
}

std::uint64_t DiskSpace::belowSizeLimit() const {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return std::numeric_limits<std::uint64_t>::max();
  return limit.rlim_cur - std::min<std::uint64_t>(size(), limit.rlim_cur);
}

std::optional<std::uint64_t> DiskSpace::available() const {
  struct statvfs disk {};
  if (::fstatvfs(file.fileDescriptor(), &disk) != 0 || disk.f_blocks == 0) return std::nullopt;
  return std::uint64_t{disk.f_bavail} * disk.f_frsize;
}

}  // namespace quenlor::recorder
