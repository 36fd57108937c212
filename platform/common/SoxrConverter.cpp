#include "platform/common/SoxrConverter.h"

#include "platform/AudioPlatform.h"
#include "platform/common/SampleReader.h"
#include "platform/common/StreamResampler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace quenlor::platform {

namespace {

using Targets = std::array<float*, 2>;

// A larger ratio means an error in a stream description. The resampler would spend minutes on its
// filter design, or allocate without bound.
constexpr double widestRatio = 1000;

// Converts the rate of a stream of mono or stereo frames.
class FrameStream {
 public:
  virtual ~FrameStream() = default;

  // Takes all source frames, writes at most room target frames and returns their number. Frames
  // that do not fit are kept for the next call. Uses only the pointers of the stream's channels.
  virtual std::size_t process(const SampleReader::Channels& source, std::size_t frames,
                              const Targets& target, std::size_t room) = 0;
};

// Equal rates: copies the frames, and stores those that do not fit.
class PassedStream final : public FrameStream {
 public:
  explicit PassedStream(std::uint32_t channelCount) : waiting(channelCount) {}

  std::size_t process(const SampleReader::Channels& source, std::size_t frames,
                      const Targets& target, std::size_t room) override {
    std::size_t given = 0;
    for (std::size_t channel = 0; channel < waiting.size(); ++channel)
      given = pass(waiting[channel], {source[channel], frames}, {target[channel], room});
    return given;
  }

 private:
  static std::size_t pass(std::vector<float>& store, std::span<const float> source,
                          std::span<float> target) {
    const std::size_t fromStore = std::min(store.size(), target.size());
    const std::size_t fromSource = std::min(source.size(), target.size() - fromStore);
    const auto stored = store.begin() + static_cast<std::ptrdiff_t>(fromStore);
    std::copy(store.begin(), stored, target.begin());
    std::copy_n(source.begin(), fromSource, target.subspan(fromStore).begin());
    store.erase(store.begin(), stored);
    const auto rest = source.subspan(fromSource);
    store.insert(store.end(), rest.begin(), rest.end());
    return fromStore + fromSource;
  }

  std::vector<std::vector<float>> waiting;
};

// Different rates. The resampler itself stores the frames that do not fit.
class ResampledStream final : public FrameStream {
 public:
  explicit ResampledStream(StreamResampler streamResampler)
      : resampler(std::move(streamResampler)) {}

  std::size_t process(const SampleReader::Channels& source, std::size_t frames,
                      const Targets& target, std::size_t room) override {
    return resampler.process(source, frames, target, room);
  }

 private:
  StreamResampler resampler;
};

std::unique_ptr<FrameStream> makeStream(double fromRate, double toRate,
                                        std::uint32_t channelCount) {
  if (fromRate == toRate) return std::make_unique<PassedStream>(channelCount);
  if (std::max(fromRate / toRate, toRate / fromRate) > widestRatio) return nullptr;
  try {
    return std::make_unique<ResampledStream>(
        StreamResampler::fixed(fromRate, toRate, channelCount));
  } catch (const PlatformError&) {
    return nullptr;
  }
}

class SoxrConverter final : public AudioConverter {
 public:
  SoxrConverter(const AudioFormat& from, const AudioFormat& to, SampleReader sampleReader,
                std::unique_ptr<FrameStream> frameStream)
      : sourceFormat(from),
        targetFormat(to),
        reader(std::move(sampleReader)),
        stream(std::move(frameStream)) {}

  ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                const InputBlock& input) override {
    try {
      return fill(output, input);
    } catch (...) {
      error = std::current_exception();
      return ConverterOutputStatus::error;
    }
  }

 private:
  ConverterOutputStatus fill(PCMBuffer& output, const InputBlock& input) {
    if (output.format() != targetFormat)
      throw PlatformError("The output buffer is not in the converter's format.");
    // So that no frames look valid after an error.
    output.setFrameLength(0);
    auto inputStatus = ConverterInputStatus::haveData;
    std::uint32_t filled = 0;
    bool first = true;
    do {
      const auto buffer = input(packetsFor(output.frameCapacity() - filled), inputStatus);
      const bool delivered = inputStatus == ConverterInputStatus::haveData && buffer != nullptr;
      // Stored frames are written even if the input block delivers nothing.
      if (delivered || first) filled += process(delivered ? buffer.get() : nullptr, output, filled);
      if (!delivered) break;
      first = false;
    } while (filled < output.frameCapacity());

    if (reader.channelCount() == 1)
      std::copy_n(output.floatChannelData()[0], filled, output.floatChannelData()[1]);
    output.setFrameLength(filled);
    if (filled > 0) return ConverterOutputStatus::haveData;
    return inputStatus == ConverterInputStatus::endOfStream ? ConverterOutputStatus::endOfStream
                                                            : ConverterOutputStatus::inputRanDry;
  }

  // Appends frames to output and returns their number.
  std::uint32_t process(const PCMBuffer* source, PCMBuffer& output, std::uint32_t filled) {
    if (source != nullptr && source->format() != sourceFormat)
      throw PlatformError("A buffer came in a format other than the converter's source format.");
    const auto planes = output.floatChannelData();
    const Targets targets{planes[0] + filled, planes[1] + filled};
    const std::size_t room = output.frameCapacity() - filled;
    const auto samples = source != nullptr ? reader.read(*source) : SampleReader::Channels{};
    const std::size_t frames = source != nullptr ? source->frameLength() : 0;
    return static_cast<std::uint32_t>(stream->process(samples, frames, targets, room));
  }

  // The number of source frames for so many target frames.
  std::uint32_t packetsFor(std::uint32_t targetFrames) const {
    const double packets =
        std::ceil(targetFrames * (sourceFormat.sampleRate() / targetFormat.sampleRate()));
    constexpr double most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(packets, most));
  }

  const AudioFormat sourceFormat;
  const AudioFormat targetFormat;
  SampleReader reader;
  const std::unique_ptr<FrameStream> stream;
};

}  // namespace

std::shared_ptr<AudioConverter> makeSoxrConverter(const AudioFormat& from, const AudioFormat& to) {
  if (to != AudioFormat::float32(to.sampleRate(), 2, false)) return nullptr;
  auto reader = SampleReader::forFormat(from);
  if (!reader) return nullptr;
  auto stream = makeStream(from.sampleRate(), to.sampleRate(), reader->channelCount());
  if (!stream) return nullptr;
  return std::make_shared<SoxrConverter>(from, to, std::move(*reader), std::move(stream));
}

}  // namespace quenlor::platform
