#include "recorder/LevelMeter.h"

#include "WaveWriter.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

constexpr std::size_t frameSize = WaveWriter::bytesPerFrame;

/// The largest magnitudes of left and right, from 0 to 32 768.
using Magnitudes = std::array<int, 2>;

int littleEndian16(std::span<const unsigned char> bytes) {
  return static_cast<std::int16_t>(bytes[0] | bytes[1] << 8);
}

void measure(std::span<const unsigned char> frames, Magnitudes& largest) {
  for (; frames.size() >= frameSize; frames = frames.subspan(frameSize)) {
    largest[0] = std::max(largest[0], std::abs(littleEndian16(frames)));
    largest[1] = std::max(largest[1], std::abs(littleEndian16(frames.subspan(2))));
  }
}

}  // namespace

LevelMeter::LevelMeter(const std::filesystem::path& recording)
    : file(::open(recording.c_str(), O_RDONLY | O_CLOEXEC)), position(WaveWriter::headerSize) {}

void LevelMeter::readNewFrames() {
  std::array<unsigned char, 16'384 * frameSize> block{};
  Magnitudes largest{};
  const std::uint64_t before = position;
  for (;;) {
    const ssize_t count =
        ::pread(file.fileDescriptor(), block.data(), block.size(), static_cast<off_t>(position));
    const std::size_t usable =
        count < 0 ? 0 : static_cast<std::size_t>(count) / frameSize * frameSize;
    if (usable == 0) break;
    measure(std::span(block).first(usable), largest);
    position += usable;
  }
  if (position == before) return;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    update(channels[i], heldSince[i], largest[i]);
    highest[i] = std::max(highest[i], channels[i].peak);
  }
}

void LevelMeter::update(ChannelLevel& channel, std::uint64_t& since, int magnitude) const {
  constexpr int largestPositive = 32'767;
  channel.peak = magnitude / 32'768.0;
  channel.clipped = channel.clipped || magnitude >= largestPositive;
  if (channel.peak < channel.heldPeak && position - since <= holdFrames * frameSize) return;
  channel.heldPeak = channel.peak;
  since = position;
}

}  // namespace quenlor::recorder
