#include "platform/PCMBuffer.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace quenlor::platform {

namespace {

// Far more than any device has. A bogus description with millions of channels would cost gigabytes
// for the list alone.
constexpr std::uint32_t mostBuffers = 1024;

}  // namespace

std::shared_ptr<PCMBuffer> PCMBuffer::create(const AudioFormat& format,
                                             std::uint32_t frameCapacity) {
  const std::uint64_t bytesPerFrame = format.streamDescription().mBytesPerFrame;
  const std::uint64_t bytesPerBuffer = bytesPerFrame * frameCapacity;
  if (bytesPerFrame == 0 || format.channelCount() == 0) return nullptr;
  if (format.bufferCount() > mostBuffers) return nullptr;
  if (bytesPerBuffer > std::numeric_limits<std::uint32_t>::max()) return nullptr;
  try {
    // Not std::vector, which would zero memory that the caller is about to fill.
    std::unique_ptr<std::byte[]> memory(new std::byte[bytesPerBuffer * format.bufferCount()]);
    return std::make_shared<PCMBuffer>(Key(), format, frameCapacity, std::move(memory));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

PCMBuffer::PCMBuffer(Key, const AudioFormat& format, std::uint32_t frameCapacity,
                     std::unique_ptr<std::byte[]> storage)
    : pcmFormat(format), capacity(frameCapacity), memory(std::move(storage)) {
  const std::uint32_t bytes = format.streamDescription().mBytesPerFrame * frameCapacity;
  const std::uint32_t channelsPerBuffer = format.isInterleaved() ? format.channelCount() : 1;
  buffers.reserve(format.bufferCount());
  for (std::uint32_t i = 0; i < format.bufferCount(); ++i)
    buffers.push_back({channelsPerBuffer, bytes, memory.get() + std::size_t{bytes} * i});
  if (!format.isFloat32() || format.isInterleaved()) return;
  channels.reserve(buffers.size());
  for (const AudioBuffer& buffer : buffers) channels.push_back(static_cast<float*>(buffer.mData));
}

void PCMBuffer::setFrameLength(std::uint32_t frames) {
  length = std::min(frames, capacity);
  for (AudioBuffer& buffer : buffers)
    buffer.mDataByteSize = length * pcmFormat.streamDescription().mBytesPerFrame;
}

}  // namespace quenlor::platform
