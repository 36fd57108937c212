#pragma once

#include "FileHandle.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>

namespace quenlor::recorder {

/// Allocates disk space ahead of the end of a recording while it grows, so that it can be stopped
/// and completed in time, however fast others fill the disk.
class DiskSpace {
 public:
  /// What is allocated ahead, in seconds of recording. Should be called for once a second.
  static constexpr std::uint64_t secondsAhead = 5;

  /// Of a recording that cannot be opened nothing is known; its space is no reason to end it.
  explicit DiskSpace(const std::filesystem::path& recording);
  /// Gives back what was not needed. Nobody may write to the recording any more.
  ~DiskSpace();
  DiskSpace(const DiskSpace&) = delete;
  DiskSpace& operator=(const DiskSpace&) = delete;

  /// An error where secondsAhead cannot be had: the recording should be stopped.
  std::error_code allocateAhead();

  /// How many seconds of recording there is room for; nothing where the system does not know.
  std::optional<double> secondsLeft() const;

 private:
  std::uint64_t size() const;
  /// Room for a file that may grow further, in bytes.
  std::uint64_t belowSizeLimit() const;
  std::optional<std::uint64_t> available() const;

  FileHandle file;
  /// Up to where in the file there is space.
  std::uint64_t allocatedEnd = 0;
};

}  // namespace quenlor::recorder
