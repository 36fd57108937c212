#pragma once

#include "LocalizedError.h"
#include "platform/CaptureDevice.h"

#include <cstddef>
#include <functional>

namespace quenlor {

/// Why the microphone may not be recorded. Errors are equal if their cases are.
class PermissionError final : public LocalizedError {
 public:
  enum class Case { microphoneDenied, microphoneRestricted, microphoneUnavailable };

  static PermissionError microphoneDenied();
  static PermissionError microphoneRestricted();
  static PermissionError microphoneUnavailable();

  Case errorCase() const { return kind; }
  bool operator==(const PermissionError& other) const { return kind == other.kind; }

 private:
  PermissionError(Case which, const char* description) : LocalizedError(description), kind(which) {}

  Case kind;
};

class Permissions {
 public:
  Permissions() = delete;

  /// Returns if this process may record audio. Asks the user if nobody has decided yet, and waits
  /// for the answer without a timeout. Throws PermissionError otherwise.
  static void ensureMicrophoneAccess(platform::CaptureDevice& captureDevice);
};

}  // namespace quenlor

template <>
struct std::hash<quenlor::PermissionError> {
  std::size_t operator()(const quenlor::PermissionError& error) const noexcept {
    return std::hash<quenlor::PermissionError::Case>()(error.errorCase());
  }
};
