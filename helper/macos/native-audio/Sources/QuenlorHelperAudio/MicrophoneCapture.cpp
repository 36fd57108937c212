#include "AudioTapSession.h"
#include "AudioTapSessionError.h"
#include "SidecarTrace.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

namespace quenlor {

namespace {

/// The buffer size that the tap asks for, in frames; buffers of other sizes are accepted as well.
constexpr std::uint32_t tapBufferSize = 1024;

}  // namespace

void AudioTapSession::configureMicrophoneCapture() {
  logSidecarTrace("Reading the microphone input node format.");
  const platform::AudioFormat format = microphoneEngine->inputFormat(inputBus);
  if (format.channelCount() == 0) throw AudioTapSessionError::missingMicrophoneInput();

  logSidecarTrace("Creating the microphone converter.");
  // If there is none, the first conversion tries again and reports the failure.
  microphoneConverter = platform.makeConverter(format, writer->targetFormat);
  microphoneEngine->removeTap(inputBus);

  logSidecarTrace("Installing the microphone tap.");
  microphoneEngine->installTap(
      inputBus, tapBufferSize, format,
      [weakSession = weak_from_this()](std::shared_ptr<platform::PCMBuffer> buffer) {
        if (const auto session = weakSession.lock())
          session->handleMicrophoneBuffer(std::move(buffer));
      });
  microphoneEngine->prepare();

  logSidecarTrace("Starting the microphone engine.");
  microphoneEngine->start();
  logSidecarTrace("Microphone engine started.");
}

void AudioTapSession::handleMicrophoneBuffer(std::shared_ptr<platform::PCMBuffer> buffer) {
  try {
    mixQueue->async([weakSession = weak_from_this(), buffer = std::move(buffer)] {
      if (const auto session = weakSession.lock())
        session->convertAndAppendMicrophoneBuffer(buffer);
    });
  } catch (...) {
    // Only an allocation can fail here. No exception may escape into the host's thread.
    recordAsyncFailure(std::current_exception());
  }
}

void AudioTapSession::convertAndAppendMicrophoneBuffer(
    const std::shared_ptr<platform::PCMBuffer>& buffer) {
  mixQueue->assertCurrent();
  if (recordedAsyncFailure()) return;
  try {
    microphoneBacklog.append(*convert(buffer, microphoneConverter));
  } catch (...) {
    recordAsyncFailure(std::current_exception());
  }
}

}  // namespace quenlor
