#include "tests/support/Tone.h"

#include <cmath>
#include <numbers>

namespace quenlor::test {

namespace {

double radiansPerSample(double frequency, double rate) {
  return 2 * std::numbers::pi * frequency / rate;
}

}  // namespace

std::vector<float> makeTone(double frequency, double rate, double amplitude, std::size_t frames) {
  const double w = radiansPerSample(frequency, rate);
  std::vector<float> samples(frames);
  for (std::size_t n = 0; n < frames; ++n)
    samples[n] = static_cast<float>(amplitude * std::sin(w * static_cast<double>(n)));
  return samples;
}

ToneFit fitTone(std::span<const float> samples, double frequency, double rate) {
  const double w = radiansPerSample(frequency, rate);
  // The normal equations for y = a sin + b cos.
  double ss = 0, sc = 0, cc = 0, sy = 0, cy = 0;
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double s = std::sin(w * static_cast<double>(n));
    const double c = std::cos(w * static_cast<double>(n));
    ss += s * s;
    sc += s * c;
    cc += c * c;
    sy += s * samples[n];
    cy += c * samples[n];
  }
  const double determinant = ss * cc - sc * sc;
  const double a = (cc * sy - sc * cy) / determinant;
  const double b = (ss * cy - sc * sy) / determinant;

  double residualPower = 0, tonePower = 0;
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const double angle = w * static_cast<double>(n);
    const double tone = a * std::sin(angle) + b * std::cos(angle);
    residualPower += (samples[n] - tone) * (samples[n] - tone);
    tonePower += tone * tone;
  }
  return {std::hypot(a, b), std::atan2(b, a), 10 * std::log10(residualPower / tonePower)};
}

std::vector<std::size_t> findBreaks(std::span<const float> samples, double frequency, double rate,
                                    double tolerance) {
  const double factor = 2 * std::cos(radiansPerSample(frequency, rate));
  std::vector<std::size_t> breaks;
  std::size_t lastDeparture = 0;
  for (std::size_t n = 2; n < samples.size(); ++n) {
    const double predicted = factor * samples[n - 1] - samples[n - 2];
    // Written so that a sample that is not a number departs too.
    if (std::abs(samples[n] - predicted) <= tolerance) continue;
    if (breaks.empty() || n - lastDeparture > 2) breaks.push_back(n);
    lastDeparture = n;
  }
  return breaks;
}

}  // namespace quenlor::test
