#include "platform/virtual/VirtualCaptureDevice.h"

#include <utility>

namespace quenlor::platform::virtualhost {

VirtualCaptureDevice::VirtualCaptureDevice(CallLedger& callLedger, const VirtualSettings& settings)
    : ledger(callLedger),
      hasMicrophone(settings.microphone.has_value()),
      grantsAccess(settings.grantsAccess),
      status(settings.authorizationStatus) {}

VirtualCaptureDevice::~VirtualCaptureDevice() {
  if (answer.joinable()) answer.join();
}

AuthorizationStatus VirtualCaptureDevice::authorizationStatus() {
  const bool fails = ledger.attempt("authorizationStatus") != kAudioHardwareNoError;
  return fails ? AuthorizationStatus::denied : status;
}

void VirtualCaptureDevice::requestAccess(std::function<void(bool granted)> completion) {
  const bool fails = ledger.attempt("requestAccess") != kAudioHardwareNoError;
  const bool granted = !fails && grantsAccess;
  status = granted ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
  if (answer.joinable()) answer.join();
  answer = std::thread([completion = std::move(completion), granted] { completion(granted); });
}

std::optional<std::string> VirtualCaptureDevice::defaultDevice() {
  const bool fails = ledger.attempt("defaultDevice") != kAudioHardwareNoError;
  if (fails || !hasMicrophone) return std::nullopt;
  return kMicrophoneName;
}

}  // namespace quenlor::platform::virtualhost
