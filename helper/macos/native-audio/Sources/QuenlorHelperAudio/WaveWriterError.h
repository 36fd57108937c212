#pragma once

#include "LocalizedError.h"

namespace quenlor {

/// What the writer refuses itself. Failures of the file system come as std::system_errors.
class WaveWriterError final : public LocalizedError {
 public:
  enum class Case { invalidTargetFormat, outputFileHandleUnavailable };

  static WaveWriterError invalidTargetFormat() {
    return {Case::invalidTargetFormat, "WaveWriter requires 48 kHz stereo float32 PCM buffers."};
  }
  static WaveWriterError outputFileHandleUnavailable() {
    return {Case::outputFileHandleUnavailable, "WaveWriter could not open the output file."};
  }

  Case errorCase() const { return kind; }

 private:
  WaveWriterError(Case which, const char* description) : LocalizedError(description), kind(which) {}

  Case kind;
};

}  // namespace quenlor
