#include "platform/coreaudio/CoreAudioPlatform.h"

#include "platform/coreaudio/CoreAudioConverter.h"
#include "platform/coreaudio/CoreAudioEngine.h"
#include "platform/coreaudio/Formats.h"
#include "platform/coreaudio/SystemQueue.h"
#include "platform/coreaudio/SystemTimer.h"

namespace quenlor::platform::coreaudio {

// Work that is still running or submitted may call the platform.
CoreAudioPlatform::~CoreAudioPlatform() {
  for (const auto& queue : queues) queue->sync([] {});
}

std::unique_ptr<AudioEngine> CoreAudioPlatform::makeEngine() {
  return std::make_unique<CoreAudioEngine>();
}

std::shared_ptr<DispatchQueue> CoreAudioPlatform::makeQueue(const std::string& label) {
  queues.push_back(std::make_shared<SystemQueue>(label));
  return queues.back();
}

std::unique_ptr<DispatchTimer> CoreAudioPlatform::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  return std::make_unique<SystemTimer>(*queue);
}

std::optional<AudioFormat> CoreAudioPlatform::makeFormat(
    const AudioStreamBasicDescription& description) {
  const std::optional<AudioFormat> format = AudioFormat::fromStreamDescription(description);
  if (!format || systemFormat(*format) == nil) return std::nullopt;
  return format;
}

std::shared_ptr<PCMBuffer> CoreAudioPlatform::makeBuffer(const AudioFormat& format,
                                                         std::uint32_t frameCapacity) {
  return PCMBuffer::create(format, frameCapacity);
}

std::shared_ptr<AudioConverter> CoreAudioPlatform::makeConverter(const AudioFormat& from,
                                                                 const AudioFormat& to) {
  return makeCoreAudioConverter(from, to);
}

std::chrono::system_clock::time_point CoreAudioPlatform::currentTime() {
  return std::chrono::system_clock::now();
}

}  // namespace quenlor::platform::coreaudio
