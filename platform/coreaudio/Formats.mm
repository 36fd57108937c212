#include "platform/coreaudio/Formats.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

namespace quenlor::platform::coreaudio {

namespace {

void copySamples(std::span<const AudioBuffer> from, std::span<const AudioBuffer> to) {
  for (std::size_t i = 0; i < std::min(from.size(), to.size()); ++i)
    std::memcpy(to[i].mData, from[i].mData, std::min(from[i].mDataByteSize, to[i].mDataByteSize));
}

/// The seam has only a number of channels. The system takes one and two for mono and stereo; more
/// need a layout, here one of discrete channels.
AVAudioChannelLayout* systemLayout(std::uint32_t channelCount) {
  if (channelCount <= 2) return nil;
  const AudioChannelLayoutTag tag = kAudioChannelLayoutTag_DiscreteInOrder | channelCount;
  return [[AVAudioChannelLayout alloc] initWithLayoutTag:tag];
}

}  // namespace

AVAudioFormat* systemFormat(const AudioFormat& format) {
  const auto description = std::bit_cast<::AudioStreamBasicDescription>(format.streamDescription());
  return [[AVAudioFormat alloc] initWithStreamDescription:&description
                                            channelLayout:systemLayout(format.channelCount())];
}

// What is read lies in memory that goes with the format.
std::optional<AudioFormat> hostFormat(NS_VALID_UNTIL_END_OF_SCOPE AVAudioFormat* format) {
  return AudioFormat::fromStreamDescription(
      std::bit_cast<AudioStreamBasicDescription>(*format.streamDescription));
}

std::vector<AudioBuffer> hostBuffers(const ::AudioBufferList& list) {
  std::vector<AudioBuffer> buffers;
  for (const ::AudioBuffer& buffer : std::span(+list.mBuffers, list.mNumberBuffers))
    buffers.push_back(std::bit_cast<AudioBuffer>(buffer));
  return buffers;
}

AVAudioPCMBuffer* systemBuffer(const PCMBuffer& buffer) {
  AVAudioFormat* const format = systemFormat(buffer.format());
  if (format == nil) return nil;
  // A buffer of capacity 0 may be refused.
  const std::uint32_t capacity = std::max(buffer.frameLength(), std::uint32_t{1});
  AVAudioPCMBuffer* const copy = [[AVAudioPCMBuffer alloc] initWithPCMFormat:format
                                                               frameCapacity:capacity];
  // Sets the byte sizes as well.
  copy.frameLength = buffer.frameLength();
  if (copy != nil) copySamples(buffer.audioBufferList(), hostBuffers(*copy.audioBufferList));
  return copy;
}

std::shared_ptr<PCMBuffer> hostBuffer(AVAudioPCMBuffer* buffer) {
  const std::optional<AudioFormat> format = hostFormat(buffer.format);
  auto copy = format ? PCMBuffer::create(*format, buffer.frameLength) : nullptr;
  if (copy) copyFrames(buffer, *copy);
  return copy;
}

// What is read lies in memory that goes with the buffer.
void copyFrames(NS_VALID_UNTIL_END_OF_SCOPE AVAudioPCMBuffer* from, PCMBuffer& to) {
  to.setFrameLength(from.frameLength);
  copySamples(hostBuffers(*from.audioBufferList), to.audioBufferList());
}

NSString* systemString(const std::string& text) {
  return [[NSString alloc] initWithBytes:text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding];
}

std::string hostString(NSString* text) {
  const char* const bytes = text.UTF8String;
  return bytes == nullptr ? std::string() : bytes;
}

}  // namespace quenlor::platform::coreaudio
