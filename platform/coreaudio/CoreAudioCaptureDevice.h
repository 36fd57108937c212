#pragma once

#include "platform/CaptureDevice.h"

namespace quenlor::platform::coreaudio {

/// The user's permission for this program, which the system keeps, and the default input device.
class CoreAudioCaptureDevice final : public CaptureDevice {
 public:
  AuthorizationStatus authorizationStatus() override;
  void requestAccess(std::function<void(bool granted)> completion) override;
  std::optional<std::string> defaultDevice() override;
};

}  // namespace quenlor::platform::coreaudio
