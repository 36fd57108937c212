#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace quenlor::test {

/// A sine of the given peak amplitude that starts at phase 0. Frequency and rate are in Hz.
std::vector<float> makeTone(double frequency, double rate, double amplitude, std::size_t frames);

/// The sine amplitude * sin(2 pi frequency n / rate + phase) that comes closest to some samples.
struct ToneFit {
  double amplitude;
  /// In radians, from -pi to pi, at the first sample.
  double phase;
  /// Power of what the sine leaves unexplained, relative to the sine: -96 means 16 clean bits.
  double residualDecibels;
};

/// Fits by least squares. The samples should hold several periods of the tone.
ToneFit fitTone(std::span<const float> samples, double frequency, double rate);

/// Where a steady tone is broken (samples lost, repeated or altered): the indices n at which y[n]
/// departs from 2 cos(w) y[n-1] - y[n-2] by more than tolerance. Indices that lie next to each
/// other, or have one other in between, count as one break, named by the first.
std::vector<std::size_t> findBreaks(std::span<const float> samples, double frequency, double rate,
                                    double tolerance);

}  // namespace quenlor::test
