#pragma once

#include <filesystem>

namespace quenlor::recorder {

/// A folder of its own among the system's temporary files, until remove() or the end of its scope.
class ScratchFolder {
 public:
  /// Throws std::system_error.
  ScratchFolder();
  ~ScratchFolder() { remove(); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return folder; }
  /// Removes it with everything in it. What has a file open can go on using that.
  void remove();

 private:
  std::filesystem::path folder;
};

}  // namespace quenlor::recorder
