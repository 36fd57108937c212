#include "AudioTapSession.h"
#include "AudioTapSessionError.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

namespace quenlor {

namespace {

/// Copies the device's samples into an owned buffer, whose byte sizes are its capacity. Shorter
/// input is padded with silence.
void copyBuffers(platform::AudioBufferList input, platform::AudioBufferList owned) {
  if (input.size() != owned.size())
    throw AudioTapSessionError::invalidAudioFormat(
        "Unexpected AudioBufferList layout from the system tap.");
  for (std::size_t i = 0; i < input.size(); ++i) {
    if (input[i].mData == nullptr || owned[i].mData == nullptr)
      throw AudioTapSessionError::invalidAudioFormat(
          "System tap buffer data was unexpectedly nil.");
    if (input[i].mDataByteSize > owned[i].mDataByteSize)
      throw AudioTapSessionError::invalidAudioFormat(
          "Owned system buffer was smaller than the callback payload.");
    std::byte* const rest =
        std::copy_n(static_cast<const std::byte*>(input[i].mData), input[i].mDataByteSize,
                    static_cast<std::byte*>(owned[i].mData));
    std::fill_n(rest, owned[i].mDataByteSize - input[i].mDataByteSize, std::byte{0});
  }
}

}  // namespace

void AudioTapSession::takeSystemBuffers(platform::AudioBufferList input) {
  callbackQueue->assertCurrent();
  if (!systemFormat || recordedAsyncFailure()) return;
  try {
    handleSystemAudio(makeOwnedSystemBuffer(input, *systemFormat));
  } catch (...) {
    recordAsyncFailure(std::current_exception());
  }
}

/// Copies the device's samples and returns the copy in the target format.
std::shared_ptr<platform::PCMBuffer> AudioTapSession::makeOwnedSystemBuffer(
    platform::AudioBufferList input, const platform::AudioFormat& sourceFormat) {
  const std::uint32_t frames = frameCount(input, sourceFormat);
  if (frames == 0)
    throw AudioTapSessionError::invalidAudioFormat("The system tap callback reported zero frames.");
  const auto owned = platform.makeBuffer(sourceFormat, frames);
  if (!owned)
    throw AudioTapSessionError::invalidAudioFormat(
        "Unable to allocate an owned system PCM buffer.");
  copyBuffers(input, owned->audioBufferList());
  owned->setFrameLength(frames);
  return convert(owned, systemConverter);
}

std::uint32_t AudioTapSession::frameCount(platform::AudioBufferList list,
                                          const platform::AudioFormat& format) {
  const std::uint32_t bytesPerFrame = format.streamDescription().mBytesPerFrame;
  if (bytesPerFrame == 0)
    throw AudioTapSessionError::invalidAudioFormat(
        "The aggregate device reported zero bytes per frame.");
  return list.empty() ? 0 : list.front().mDataByteSize / bytesPerFrame;
}

void AudioTapSession::handleSystemAudio(std::shared_ptr<platform::PCMBuffer> buffer) {
  mixQueue->async([weakSession = weak_from_this(), buffer = std::move(buffer)] {
    if (const auto session = weakSession.lock()) session->appendSystemBuffer(*buffer);
  });
}

void AudioTapSession::appendSystemBuffer(const platform::PCMBuffer& buffer) {
  mixQueue->assertCurrent();
  if (recordedAsyncFailure()) return;
  try {
    systemBacklog.append(buffer);
  } catch (...) {
    // Only an allocation can fail here.
    recordAsyncFailure(std::current_exception());
  }
}

}  // namespace quenlor
