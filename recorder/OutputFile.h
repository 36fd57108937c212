#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quenlor::recorder {

/// The place that a recording is made at, and what stood there before.
///
/// An earlier file is renamed, within its folder, before the recording starts. It is removed once
/// the recording is complete, and gets its name back where the recording fails.
class OutputFile {
 public:
  /// Throws std::runtime_error where no recording may be made at path: something stands there, and
  /// replacesEarlier is false or it is no regular file; or its folder cannot be used.
  OutputFile(std::filesystem::path path, bool replacesEarlier);
  /// As fail(), unless complete() or fail() was called. Whoever records must have ended.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::filesystem::path& path() const { return recording; }
  /// Where the earlier file is now; empty where there was none.
  const std::filesystem::path& earlier() const { return earlierFile; }

  /// The recording is complete: the earlier file goes.
  void complete();
  /// The recording failed: the earlier file comes back. Gives where the unfinished recording is, if
  /// there is one that holds samples; it gives way to the earlier file. What cannot be renamed
  /// stays where it is.
  std::optional<std::filesystem::path> fail();

  /// Why the file could not be made, as the system says it; empty where it can be made now.
  std::string creationError() const;

 private:
  const std::filesystem::path recording;
  std::filesystem::path earlierFile;
  bool isSettled = false;
};

}  // namespace quenlor::recorder
