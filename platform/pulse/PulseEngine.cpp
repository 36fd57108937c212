#include "platform/pulse/PulseEngine.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

const AudioFormat noInput = AudioFormat::float32(0, 0, true);

AudioFormat formatOf(const SourceInfo& source) {
  const std::uint32_t channels = std::min<std::uint32_t>(source.channels.channels, 2);
  return AudioFormat::float32(recordedRate, channels, false);
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
  group.finish();
  ConnectionLock held(connection);
  tap.reset();
}

void PulseEngine::start() {
  if (hasStarted) return;
  if (!input) throw PlatformError("The microphone could not be started: there is none.");
  try {
    group.add(CaptureRole::microphone, {"Microphone", input->rate, input->channels}, input->name,
              [this](const PlanarFrames& frames, std::size_t count) {
                connection.assertLocked();
                deliver(frames, count);
              });
    hasStarted = true;
    connection.trace("The microphone is recorded from " + input->description + ".");
  } catch (const PlatformError& error) {
    throw PlatformError(std::string("The microphone could not be started: ") + error.what());
  }
}

void PulseEngine::stop() {
  if (std::exchange(hasStarted, false)) group.remove(CaptureRole::microphone);
}

void PulseEngine::deliver(const PlanarFrames& frames, std::size_t count) {
  if (!tap) return;
  auto buffer = PCMBuffer::create(tap->format, static_cast<std::uint32_t>(count));
  if (buffer == nullptr) {
    if (!std::exchange(hasReportedAllocationFailure, true))
      connection.trace("There is no memory for the samples of the microphone.");
    return;
  }
  buffer->setFrameLength(static_cast<std::uint32_t>(count));
  for (std::size_t channel = 0; channel < frames.channels(); ++channel)
    std::copy_n(frames.data()[channel], count, buffer->floatChannelData()[channel]);
  tap->block(std::move(buffer));
}

}  // namespace quenlor::platform::pulse
