#include "platform/pulse/PulsePlatform.h"

#include "platform/common/QueueTimer.h"
#include "platform/common/SerialQueue.h"
#include "platform/common/SoxrConverter.h"

namespace quenlor::platform::pulse {

PulsePlatform::Server& PulsePlatform::server() {
  if (!reachedServer) reachedServer.emplace(trace);
  return *reachedServer;
}

std::unique_ptr<AudioEngine> PulsePlatform::makeEngine() {
  return std::make_unique<PulseEngine>(server().connection, server().group);
}

std::shared_ptr<DispatchQueue> PulsePlatform::makeQueue(const std::string& label) {
  return std::make_shared<SerialQueue>(eventLoop, label);
}

std::unique_ptr<DispatchTimer> PulsePlatform::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  return std::make_unique<QueueTimer>(eventLoop, std::move(queue));
}

std::optional<AudioFormat> PulsePlatform::makeFormat(
    const AudioStreamBasicDescription& description) {
  return AudioFormat::fromStreamDescription(description);
}

std::shared_ptr<PCMBuffer> PulsePlatform::makeBuffer(const AudioFormat& format,
                                                     std::uint32_t frameCapacity) {
  return PCMBuffer::create(format, frameCapacity);
}

std::shared_ptr<AudioConverter> PulsePlatform::makeConverter(const AudioFormat& from,
                                                             const AudioFormat& to) {
  return makeSoxrConverter(from, to);
}

std::chrono::system_clock::time_point PulsePlatform::currentTime() {
  return std::chrono::system_clock::now();
}

std::optional<std::string> PulsePlatform::defaultDevice() {
  try {
    const SourceInfo source = querySource(server().connection, defaultSource);
    if (source.isMonitor) return std::nullopt;
    return source.name;
  } catch (const PlatformError& error) {
    trace(std::string("The default source cannot be used: ") + error.what());
    return std::nullopt;
  }
}

}  // namespace quenlor::platform::pulse
