#pragma once

#include "platform/AudioPlatform.h"
#include "platform/coreaudio/CoreAudioCaptureDevice.h"
#include "platform/coreaudio/CoreAudioHardware.h"

#include <vector>

namespace quenlor::platform::coreaudio {

/// macOS 14.2 or later. Buffers and formats are the seam's own; what the system needs in its own
/// kind is copied on the way in and out.
class CoreAudioPlatform final : public AudioPlatform {
 public:
  CoreAudioPlatform() = default;
  ~CoreAudioPlatform() override;

  CoreAudioPlatform(const CoreAudioPlatform&) = delete;
  CoreAudioPlatform& operator=(const CoreAudioPlatform&) = delete;

  AudioHardware& hardware() override { return coreAudioHardware; }
  CaptureDevice& captureDevice() override { return coreAudioCaptureDevice; }
  std::unique_ptr<AudioEngine> makeEngine() override;
  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override;
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override;
  std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) override;
  std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                        std::uint32_t frameCapacity) override;
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                const AudioFormat& to) override;
  std::chrono::system_clock::time_point currentTime() override;

 private:
  CoreAudioHardware coreAudioHardware;
  CoreAudioCaptureDevice coreAudioCaptureDevice;
  /// Every queue that was made. Their threads are the system's, and serve this process for good.
  std::vector<std::shared_ptr<DispatchQueue>> queues;
};

}  // namespace quenlor::platform::coreaudio
