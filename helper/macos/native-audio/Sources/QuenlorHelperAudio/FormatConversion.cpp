#include "AudioTapSession.h"
#include "AudioTapSessionError.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace quenlor {

using platform::AudioConverter;
using platform::ConverterInputStatus;
using platform::ConverterOutputStatus;
using platform::PCMBuffer;

namespace {

/// The number of frames that a source buffer can have at the target rate, at least 1. Rounded up
/// from a ratio that is itself rounded: 441 frames of 44 100 Hz give 481 at 48 000 Hz. Returns
/// nullopt if the number does not fit in 32 bits.
std::optional<std::uint32_t> outputCapacity(double targetRate, const PCMBuffer& source) {
  const double ratio = targetRate / source.format().sampleRate();
  const double capacity = std::ceil(ratio * source.frameLength());
  if (!(capacity >= 0 && capacity <= std::numeric_limits<std::uint32_t>::max()))
    return std::nullopt;
  return std::max(static_cast<std::uint32_t>(capacity), std::uint32_t{1});
}

void throwUnlessConverted(ConverterOutputStatus status) {
  switch (status) {
    case ConverterOutputStatus::haveData:
    case ConverterOutputStatus::inputRanDry:
    case ConverterOutputStatus::endOfStream:
      return;
    case ConverterOutputStatus::error:
      throw AudioTapSessionError::invalidAudioFormat(
          "AVAudioConverter returned an error while converting audio.");
  }
  throw AudioTapSessionError::invalidAudioFormat("AVAudioConverter returned an unknown status.");
}

}  // namespace

/// Returns the buffer in the target format: the same buffer if it has that format already. The
/// converter is made on first use, kept for the session's life and never reset, since it streams
/// from buffer to buffer.
std::shared_ptr<PCMBuffer> AudioTapSession::convert(const std::shared_ptr<PCMBuffer>& buffer,
                                                    std::shared_ptr<AudioConverter>& converter) {
  const platform::AudioFormat& target = writer->targetFormat;
  if (buffer->format() == target) return buffer;
  if (!converter) converter = platform.makeConverter(buffer->format(), target);
  if (!converter)
    throw AudioTapSessionError::invalidAudioFormat("Unable to create an AVAudioConverter.");

  const std::optional<std::uint32_t> capacity = outputCapacity(target.sampleRate(), *buffer);
  auto output = capacity ? platform.makeBuffer(target, *capacity) : nullptr;
  if (!output)
    throw AudioTapSessionError::invalidAudioFormat("Unable to allocate the converted PCM buffer.");

  std::exception_ptr error;
  bool handedOver = false;
  const auto input = [&](std::uint32_t /*packets*/, ConverterInputStatus& status) {
    status = handedOver ? ConverterInputStatus::endOfStream : ConverterInputStatus::haveData;
    return std::exchange(handedOver, true) ? nullptr : buffer;
  };
  const ConverterOutputStatus status = converter->convert(*output, error, input);
  if (error) std::rethrow_exception(error);
  throwUnlessConverted(status);
  return output;
}

}  // namespace quenlor
