#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

struct soxr;

namespace quenlor::platform {

/// A streaming resampler for one or two channels of floats. It holds back some input, and gives it
/// out with the input that follows. Output frame 0 lies where input frame 0 lies, to a twentieth of
/// a millisecond.
///
/// Used by one thread at a time.
class StreamResampler {
 public:
  /// One pointer a channel; only those of the stream's channels are used.
  using Input = std::array<const float*, 2>;
  using Output = std::array<float*, 2>;

  /// A resampler between two rates, or one whose ratio varies about theirs by up to a percent.
  /// Throws PlatformError where there is none for these rates, or no memory.
  static StreamResampler fixed(double fromRate, double toRate, std::uint32_t channels);
  static StreamResampler variable(double fromRate, double toRate, std::uint32_t channels);

  /// How many input frames make an output frame from now on. For a variable one only.
  void setRatio(double ratio);

  /// Takes all input frames, gives at most room output frames and returns how many; the others stay
  /// for the next call. Throws PlatformError.
  std::size_t process(const Input& input, std::size_t frames, const Output& output,
                      std::size_t room);

 private:
  struct Deleter {
    void operator()(soxr* ending) const;
  };

  StreamResampler(double fromRate, double toRate, std::uint32_t channels, unsigned long flags);

  std::unique_ptr<soxr, Deleter> stream;
};

}  // namespace quenlor::platform
