#include "AudioTapSession.h"
#include "AudioTapSessionError.h"
#include "fuzz/FuzzedInput.h"
#include "fuzz/Property.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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

/// Whether the buffers can be samples of this format: one a run of samples, none without data, the
/// first with a frame at least, and none with more than the first one's whole frames.
bool isWellFormed(const Delivery& delivery, const AudioStreamBasicDescription& reported) {
  const bool interleaved =
      (reported.mFormatFlags & platform::kAudioFormatFlagIsNonInterleaved) == 0;
  const std::size_t runs = interleaved ? 1 : reported.mChannelsPerFrame;
  if (delivery.buffers.empty() || delivery.buffers.size() != runs) return false;
  const std::uint32_t frameSize = reported.mBytesPerFrame;
  if (frameSize == 0) return false;
  const std::uint32_t frames = delivery.buffers.front().mDataByteSize / frameSize;
  return frames > 0 && std::ranges::all_of(delivery.buffers, [&](const AudioBuffer& buffer) {
           return buffer.mData != nullptr && buffer.mDataByteSize <= frames * frameSize;
         });
}

/// One recording with the device and the deliveries of an input.
class Recording {
 public:
  explicit Recording(const AudioStreamBasicDescription& streamDescription)
      : reported(streamDescription),
        host(clock, VirtualSettings{.output = quietDevice,
                                    .microphone = quietDevice,
                                    .reportedStreamFormat = streamDescription}),
        session(std::make_shared<AudioTapSession>(StartRequest{"mixed", path.string(), "Fuzz"},
                                                  host)) {}

  void run(FuzzedInput& input) {
    if (start()) {
      for (int i = 0; i < 20 && !input.isEmpty(); ++i) take(nextDelivery(input));
      stop();
    }
    session->discardIfUnfinished();
    require(std::filesystem::exists(path) == result.has_value(), "a file stays after success only");
    const auto ledger = host.ledger();
    session.reset();
    clock->runPending();
    require(ledger->aliveInAll() == 0, "nothing stays alive");
    require(ledger->misuses().empty(), "the host was used as it allows");
  }

 private:
  /// False where the description cannot be used.
  bool start() {
    try {
      session->start();
      return true;
    } catch (const AudioTapSessionError& error) {
      require(error.errorCase() == AudioTapSessionError::Case::invalidAudioFormat,
              "the format is what is wrong");
      return false;
    }
  }

  void take(const Delivery& delivery) {
    host.deliverSystem(delivery.buffers);
    allWellFormed = allWellFormed && isWellFormed(delivery, reported);
    if (delivery.tickFollows) clock->advance(AudioTapSession::mixInterval);
  }

  void stop() {
    try {
      result = session->stop();
    } catch (const AudioTapSessionError& error) {
      require(error.errorCase() == AudioTapSessionError::Case::invalidAudioFormat,
              "an error of the samples");
      require(!std::filesystem::exists(path), "a failed recording leaves no file");
      return;
    }
    require(allWellFormed, "samples that cannot be of the format are refused");
    require(result->sizeBytes == std::filesystem::file_size(path), "the size is the file's");
    require((result->sizeBytes - WaveWriter::headerSize) % WaveWriter::bytesPerFrame == 0,
            "frames are whole");
  }

  static const std::filesystem::path& outputPath() {
    static const test::TemporaryFolder folder;
    static const std::filesystem::path file = folder / "recording.wav";
    return file;
  }

  const std::filesystem::path& path = outputPath();
  const AudioStreamBasicDescription reported;
  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  VirtualPlatform host;
  std::shared_ptr<AudioTapSession> session;
  bool allWellFormed = true;
  std::optional<StopResult> result;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedInput input(data, size);
  Recording(description(input)).run(input);
  return 0;
}

}  // namespace quenlor::fuzz
