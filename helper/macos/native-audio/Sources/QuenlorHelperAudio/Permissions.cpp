#include "Permissions.h"

#include <memory>
#include <semaphore>

namespace quenlor {

namespace {

/// The user's answer. Shared with the completion handler, which may outlive the wait.
struct Answer {
  bool granted = false;
  std::binary_semaphore given{0};
};

bool askUser(platform::CaptureDevice& captureDevice) {
  const auto answer = std::make_shared<Answer>();
  captureDevice.requestAccess([answer](bool granted) {
    answer->granted = granted;
    answer->given.release();
  });
  answer->given.acquire();
  return answer->granted;
}

}  // namespace

PermissionError PermissionError::microphoneDenied() {
  return {Case::microphoneDenied, "Microphone permission was denied for the Quenlor helper."};
}

PermissionError PermissionError::microphoneRestricted() {
  return {Case::microphoneRestricted, "Microphone permission is restricted on this macOS account."};
}

PermissionError PermissionError::microphoneUnavailable() {
  return {Case::microphoneUnavailable,
          "No microphone input device is available for the Quenlor helper."};
}

void Permissions::ensureMicrophoneAccess(platform::CaptureDevice& captureDevice) {
  using platform::AuthorizationStatus;
  switch (captureDevice.authorizationStatus()) {
    case AuthorizationStatus::authorized:
      return;
    case AuthorizationStatus::notDetermined:
      if (!askUser(captureDevice)) throw PermissionError::microphoneDenied();
      if (!captureDevice.defaultDevice()) throw PermissionError::microphoneUnavailable();
      return;
    case AuthorizationStatus::restricted:
      throw PermissionError::microphoneRestricted();
    case AuthorizationStatus::denied:
      break;
  }
  // Unknown statuses count as denied.
  throw PermissionError::microphoneDenied();
}

}  // namespace quenlor
