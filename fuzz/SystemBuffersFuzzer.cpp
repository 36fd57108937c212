#include "AudioTapSession.h"
#include "AudioTapSessionError.h"
#include "fuzz/FuzzTarget.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

// Input: the stream description that the device reports, then deliveries until the input runs out.
// A delivery is a byte with the number of buffers and whether a tick follows, then for each buffer
// its size in two bytes; every sample byte is the one that follows.

namespace quenlor::fuzz {
namespace {

using platform::AudioBuffer;
using platform::AudioFormat;
using platform::AudioStreamBasicDescription;
using platform::virtualhost::DeviceSettings;
using platform::virtualhost::ManualClock;
using platform::virtualhost::Signal;
using platform::virtualhost::VirtualPlatform;
using platform::virtualhost::VirtualSettings;

constexpr DeviceSettings quietDevice{.sampleRate = 48'000,
                                     .channelCount = 2,
                                     .interleaved = false,
                                     .toneFrequency = 440,
                                     .signal = Signal::nothing};

/// One of the formats there are, or anything at all.
AudioStreamBasicDescription description(FuzzedInput& input) {
  constexpr std::array<double, 7> rates = {48'000, 44'100, 96'000, 8'000, 47'999, 48, 1e9};
  const auto choice = input.number<std::uint8_t>();
  const auto channels = input.number<std::uint8_t>();
  if (choice < 4 * rates.size()) {
    auto usual = AudioFormat::float32(rates.at(choice / 4U), channels % 8U, choice % 2 == 0)
                     .streamDescription();
    if (choice % 4 < 2) return usual;
    usual.mFormatFlags ^= platform::kAudioFormatFlagIsFloat |  //
                          platform::kAudioFormatFlagIsSignedInteger;
    usual.mBitsPerChannel = 16;
    usual.mBytesPerFrame /= 2;
    return usual;
  }
  auto any = input.number<AudioStreamBasicDescription>();
  any.mChannelsPerFrame %= 256;
  return any;
}

const std::filesystem::path& outputPath() {
  static const test::TemporaryFolder folder;
  static const std::filesystem::path file = folder / "recording.wav";
  return file;
}

struct Delivery {
  /// Each as large as its buffer says, so that a sanitizer sees a read beyond its end.
  std::vector<std::vector<std::byte>> memory;
  std::vector<AudioBuffer> buffers;
  bool tickFollows = false;
};

Delivery nextDelivery(FuzzedInput& input) {
  constexpr std::uint16_t nil = 0xFFFF;
  constexpr std::uint16_t largest = 2048;
  Delivery delivery;
  const auto choice = input.number<std::uint8_t>();
  delivery.tickFollows = choice >= 128;
  const std::size_t count = choice % 32;
  const auto sample = input.number<std::byte>();
  for (std::size_t i = 0; i < count; ++i) {
    const auto size = input.number<std::uint16_t>();
    delivery.memory.emplace_back(size % (largest + 1), sample);
    std::vector<std::byte>& bytes = delivery.memory.back();
    delivery.buffers.push_back({1, static_cast<std::uint32_t>(bytes.size()),
                                size == nil || bytes.empty() ? nullptr : bytes.data()});
  }
  return delivery;
}

/// Whether the recording succeeded: it may only fail because of the format of its samples.
bool record(AudioTapSession& session, VirtualPlatform& host, ManualClock& clock,
            FuzzedInput& input) {
  try {
    session.start();
    for (int i = 0; i < 20 && !input.isEmpty(); ++i) {
      const Delivery delivery = nextDelivery(input);
      host.deliverSystem(delivery.buffers);
      if (delivery.tickFollows) clock.advance(AudioTapSession::mixInterval);
    }
    const std::uint64_t size = session.stop().sizeBytes;
    require(size == std::filesystem::file_size(outputPath()), "the size is the file's");
    require((size - WaveWriter::headerSize) % WaveWriter::bytesPerFrame == 0, "frames are whole");
    return true;
  } catch (const AudioTapSessionError& error) {
    require(error.errorCase() == AudioTapSessionError::Case::invalidAudioFormat,
            "the format is what is wrong");
    return false;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedInput input(data, size);
  const auto clock = std::make_shared<ManualClock>();
  VirtualPlatform host(clock, VirtualSettings{.output = quietDevice,
                                              .microphone = quietDevice,
                                              .reportedStreamFormat = description(input)});
  auto session =
      std::make_shared<AudioTapSession>(StartRequest{"mixed", outputPath().string(), "Fuzz"}, host);
  const bool succeeded = record(*session, host, *clock, input);
  session->discardIfUnfinished();
  session.reset();
  clock->runPending();
  require(std::filesystem::exists(outputPath()) == succeeded, "a file stays after success only");
  require(host.ledger()->aliveInAll() == 0, "nothing stays alive");
  require(host.ledger()->misuses().empty(), "the host was used as it allows");
  return 0;
}

}  // namespace quenlor::fuzz
