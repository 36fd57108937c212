#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace quenlor::platform {

/// Whether this process may record from the microphone.
enum class AuthorizationStatus : std::int32_t {
  notDetermined = 0,
  restricted = 1,
  denied = 2,
  authorized = 3,
};

/// The permission to record audio, and the default input device. Called from the control thread.
class CaptureDevice {
 public:
  virtual ~CaptureDevice() = default;

  /// May return a value outside the enumeration if the system has further ones.
  virtual AuthorizationStatus authorizationStatus() = 0;

  /// Asks the user and returns at once; calls completion once, on any thread, with the answer.
  virtual void requestAccess(std::function<void(bool granted)> completion) = 0;

  /// The name of the default audio input, or nullopt if there is none.
  virtual std::optional<std::string> defaultDevice() = 0;
};

}  // namespace quenlor::platform
