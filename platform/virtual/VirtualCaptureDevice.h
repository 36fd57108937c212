#pragma once

#include "platform/CaptureDevice.h"
#include "platform/virtual/CallLedger.h"
#include "platform/virtual/VirtualSettings.h"

#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace quenlor::platform::virtualhost {

/// A capture device whose user answers as the settings say. The answer comes on a thread of its
/// own, under a manual clock too, since the caller may block until it comes.
class VirtualCaptureDevice final : public CaptureDevice {
 public:
  static constexpr const char* kMicrophoneName = "Virtual Microphone";

  VirtualCaptureDevice(CallLedger& callLedger, const VirtualSettings& settings);
  /// Waits for a pending answer.
  ~VirtualCaptureDevice() override;

  AuthorizationStatus authorizationStatus() override;
  void requestAccess(std::function<void(bool granted)> completion) override;
  std::optional<std::string> defaultDevice() override;

 private:
  CallLedger& ledger;
  const bool hasMicrophone;
  const bool grantsAccess;
  AuthorizationStatus status;
  std::thread answer;
};

}  // namespace quenlor::platform::virtualhost
