#include "platform/common/StreamResampler.h"

#include "platform/AudioPlatform.h"

#include <soxr.h>
#include <string>

namespace quenlor::platform {
namespace {

// soxr wants to know the widest ratio of a variable stream beforehand.
constexpr double widestVariation = 1.01;

[[noreturn]] void fail(soxr_error_t error) {
  throw PlatformError(std::string("Resampling failed: ") + error);
}

}  // namespace

void StreamResampler::Deleter::operator()(soxr* ending) const {
  soxr_delete(ending);
}

StreamResampler::StreamResampler(double fromRate, double toRate, std::uint32_t channels,
                                 unsigned long flags) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, flags);
  // The smallest DFT size: at 44.1 to 48 kHz a latency of 9 ms instead of 20, at the same quality.
  soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  runtime.log2_min_dft_size = 8;
  runtime.log2_large_dft_size = 8;
  soxr_error_t error = nullptr;
  stream.reset(soxr_create(fromRate, toRate, channels, &error, &io, &quality, &runtime));
  if (error != nullptr) fail(error);
}

StreamResampler StreamResampler::fixed(double fromRate, double toRate, std::uint32_t channels) {
  return {fromRate, toRate, channels, 0};
}

StreamResampler StreamResampler::variable(double fromRate, double toRate, std::uint32_t channels) {
  StreamResampler resampler(fromRate * widestVariation, toRate, channels, SOXR_VR);
  resampler.setRatio(fromRate / toRate);
  return resampler;
}

void StreamResampler::setRatio(double ratio) {
  const soxr_error_t error = soxr_set_io_ratio(stream.get(), ratio, 0);
  if (error != nullptr) fail(error);
}

std::size_t StreamResampler::process(const Input& input, std::size_t frames, const Output& output,
                                     std::size_t room) {
  std::size_t given = 0;
  const std::array<soxr_cbuf_t, 2> from{input[0], input[1]};
  std::array<soxr_buf_t, 2> to{output[0], output[1]};
  // Without a pointer for the number of frames consumed, it consumes them all.
  const soxr_error_t error =
      soxr_process(stream.get(), from.data(), frames, nullptr, to.data(), room, &given);
  if (error != nullptr) fail(error);
  return given;
}

}  // namespace quenlor::platform
