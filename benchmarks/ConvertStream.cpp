// Converts mono 32-bit floats on standard input to 48 000 Hz on standard output, in buffers of
// 20 ms, with the converter that recordings go through.
//
//   convert_stream HZ

#include "platform/common/SoxrConverter.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace quenlor::benchmarks {
namespace {

using platform::AudioFormat;
using platform::ConverterInputStatus;
using platform::PCMBuffer;

/// The next 20 ms of standard input; nothing at its end.
std::shared_ptr<PCMBuffer> readBuffer(const AudioFormat& format) {
  const auto wanted = static_cast<std::uint32_t>(format.sampleRate() / 50);
  auto buffer = PCMBuffer::create(format, wanted);
  const std::size_t frames =
      std::fread(buffer->audioBufferList()[0].mData, sizeof(float), wanted, stdin);
  if (frames == 0) return nullptr;
  buffer->setFrameLength(static_cast<std::uint32_t>(frames));
  return buffer;
}

void convertStream(double rate) {
  const auto source = AudioFormat::float32(rate, 1, false);
  const auto target = AudioFormat::float32(48'000, 2, false);
  const auto converter = platform::makeSoxrConverter(source, target);
  std::exception_ptr error;
  while (auto buffer = readBuffer(source)) {
    const double frames = std::ceil(buffer->frameLength() * 48'000 / rate);
    const auto output = PCMBuffer::create(target, static_cast<std::uint32_t>(frames));
    converter->convert(*output, error, [&](std::uint32_t, ConverterInputStatus& status) {
      status = buffer ? ConverterInputStatus::haveData : ConverterInputStatus::endOfStream;
      return std::exchange(buffer, nullptr);
    });
    if (error) std::rethrow_exception(error);
    std::fwrite(output->floatChannelData()[0], sizeof(float), output->frameLength(), stdout);
  }
}

}  // namespace
}  // namespace quenlor::benchmarks

int main(int argc, char** argv) {
  try {
    if (argc != 2) {
      std::fputs("Usage: convert_stream HZ <FLOATS >FLOATS\n", stderr);
      return 64;
    }
    quenlor::benchmarks::convertStream(std::stod(argv[1]));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
