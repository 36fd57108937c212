#pragma once

#include "BridgePayloads.h"
#include "FileHandle.h"
#include "platform/AudioFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quenlor {

/// Streams float stereo to a WAV file of 16-bit PCM at 48 000 Hz: a 44-byte header, then frames of
/// 4 bytes. The sizes in the header are 0 until finalize().
///
/// Not safe for concurrent calls. Failures of the file system come as std::system_errors whose text
/// names what was tried and the path.
class WaveWriter final {
 public:
  static constexpr double targetSampleRate = 48'000;
  static constexpr std::uint16_t targetChannelCount = 2;
  static constexpr std::uint16_t storedBitsPerSample = 16;
  static constexpr std::size_t bytesPerFrame = targetChannelCount * storedBitsPerSample / 8;
  static constexpr std::size_t headerSize = 44;
  using Header = std::array<std::byte, headerSize>;

  /// Creates the file and missing folders, replaces an existing file, and writes the header.
  /// Refuses a folder at the path, a path without a file name and one with a NUL character, before
  /// anything is changed. Throws WaveWriterError::outputFileHandleUnavailable if the file cannot be
  /// opened.
  explicit WaveWriter(const std::string& outputPath);
  WaveWriter(const WaveWriter&) = delete;
  WaveWriter& operator=(const WaveWriter&) = delete;

  /// Encodes and writes the first frames samples of both arrays, in one write. Throws
  /// WaveWriterError::invalidTargetFormat and writes nothing if an array has fewer.
  void append(const std::vector<float>& left, const std::vector<float>& right, std::int64_t frames);

  /// Writes the sizes into the header and closes the file. After that has succeeded, further calls
  /// do not access the file. Returns its size, and the longer of durationSeconds and the duration
  /// of the frames.
  StopResult finalize(double durationSeconds);

  /// Closes and deletes the file, finalized or not. Leaves a file at the path alone that has
  /// another device or inode number than the one created here. After finalize() has closed the
  /// file, a new file could have the same numbers.
  void discard() noexcept;

  /// The 44 bytes of a canonical RIFF/WAVE PCM header (IBM and Microsoft, "Multimedia
  /// Programming Interface", 1991). Both sizes stop at 0xFFFFFFFF. Throws std::out_of_range for
  /// arguments whose fields do not fit.
  static Header makeHeader(std::uint64_t dataByteCount, double sampleRate,
                           std::uint16_t channelCount, std::uint16_t bitsPerSample);

  const std::filesystem::path outputURL;
  /// What append() takes: 32-bit float, one buffer a channel.
  const platform::AudioFormat targetFormat;

 private:
  bool pathNamesOurFile() const;
  void writeHeader();

  FileHandle handle;
  bool didFinalize = false;
  std::uint64_t dataByteCount = 0;
  std::uint64_t frameCount = 0;
  // The frames of one append(); a member so that its memory is reused.
  std::vector<std::uint32_t> stored;
  dev_t device = 0;
  ino_t inode = 0;
};

}  // namespace quenlor
