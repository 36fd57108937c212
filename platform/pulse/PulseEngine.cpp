#include "platform/pulse/PulseEngine.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

const AudioFormat noInput = AudioFormat::float32(0, 0, true);

// One channel is planar as it is, which spares its reader a copy.
AudioFormat formatOf(const SourceInfo& source) {
  const std::uint32_t channels = source.channels.channels;
  return AudioFormat::float32(source.rate, channels, channels > 1);
}

}  // namespace

AudioFormat PulseEngine::inputFormat(std::uint32_t) {
  input.reset();
  try {
    const SourceInfo source = querySource(connection, defaultSource);
    if (source.isMonitor) {
      connection.trace("There is no microphone: the default source, " + source.name +
                       ", is the monitor of an output.");
      return noInput;
    }
    input = source;
    return formatOf(source);
  } catch (const PlatformError& error) {
    connection.trace(std::string("The default source cannot be used: ") + error.what());
    return noInput;
  }
}

void PulseEngine::installTap(std::uint32_t, std::uint32_t, const AudioFormat& format,
                             TapBlock block) {
  ConnectionLock held(connection);
  tap = Tap{format, std::move(block)};
}

void PulseEngine::removeTap(std::uint32_t) {
  connection.serve();  // What has come by now belongs to the recording.
  ConnectionLock held(connection);
  if (track != nullptr) track->finish();
  tap.reset();
}

void PulseEngine::start() {
  if (track != nullptr) return;
  if (!input) throw PlatformError("The microphone could not be started: there is none.");
  try {
    track = std::make_unique<CaptureTrack>(connection,
                                           CaptureForm{"Microphone", input->rate, input->channels},
                                           input->name, [this](std::span<std::byte> samples) {
                                             connection.assertLocked();
                                             deliver(samples);
                                           });
  } catch (const PlatformError& error) {
    throw PlatformError(std::string("The microphone could not be started: ") + error.what());
  }
  group.add(CaptureRole::microphone, *track);
}

void PulseEngine::stop() {
  if (track == nullptr) return;
  group.remove(CaptureRole::microphone);
  track.reset();
}

void PulseEngine::deliver(std::span<std::byte> samples) {
  if (!tap) return;
  const std::size_t frames = samples.size() / (sizeof(float) * tap->format.channelCount());
  auto buffer = PCMBuffer::create(tap->format, static_cast<std::uint32_t>(frames));
  if (buffer == nullptr) {
    if (!std::exchange(hasToldOfMemory, true))
      connection.trace("There is no memory for the samples of the microphone.");
    return;
  }
  buffer->setFrameLength(static_cast<std::uint32_t>(frames));
  const AudioBuffer& target = buffer->audioBufferList().front();
  std::memcpy(target.mData, samples.data(), target.mDataByteSize);
  tap->block(std::move(buffer));
}

}  // namespace quenlor::platform::pulse
