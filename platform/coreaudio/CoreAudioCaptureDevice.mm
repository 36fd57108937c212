#include "platform/coreaudio/CoreAudioCaptureDevice.h"

#include "platform/coreaudio/Formats.h"

#import <AVFoundation/AVFoundation.h>

namespace quenlor::platform::coreaudio {

AuthorizationStatus CoreAudioCaptureDevice::authorizationStatus() {
  return static_cast<AuthorizationStatus>(
      [AVCaptureDevice authorizationStatusForMediaType:AVMediaTypeAudio]);
}

void CoreAudioCaptureDevice::requestAccess(std::function<void(bool granted)> completion) {
  [AVCaptureDevice requestAccessForMediaType:AVMediaTypeAudio
                           completionHandler:^(BOOL granted) {
                             completion(granted);
                           }];
}

std::optional<std::string> CoreAudioCaptureDevice::defaultDevice() {
  AVCaptureDevice* const device = [AVCaptureDevice defaultDeviceWithMediaType:AVMediaTypeAudio];
  if (device == nil) return std::nullopt;
  return hostString(device.localizedName);
}

}  // namespace quenlor::platform::coreaudio
