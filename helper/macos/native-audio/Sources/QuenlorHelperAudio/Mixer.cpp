#include "AudioTapSession.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

namespace quenlor {

namespace {

/// The most frames that a tick writes: as many as play between two ticks.
constexpr std::int64_t framesPerTick = 960;
static_assert(framesPerTick ==
              WaveWriter::targetSampleRate * AudioTapSession::mixInterval.count() / 1000);

float limited(float sum) {
  if (sum <= -1.0F) return -1.0F;
  return sum > 1.0F ? 1.0F : sum;
}

/// Adds the samples of other to those of mix, and limits the sums to ±1.
void mixInto(std::vector<float>& mix, const std::vector<float>& other) {
  std::transform(mix.begin(), mix.end(), other.begin(), mix.begin(),
                 [](float a, float b) { return limited(a + b); });
}

}  // namespace

void AudioTapSession::startMixerTimer() {
  auto timer = platform.makeTimer(mixQueue);
  timer->schedule(mixInterval, mixInterval, std::chrono::nanoseconds(0));
  timer->setEventHandler([weakSession = weak_from_this()] {
    if (const auto session = weakSession.lock()) session->mixerTick();
  });
  mixTimer = std::move(timer);
  mixTimer->resume();
}

/// Does not wait for a running tick; work on mixQueue does.
void AudioTapSession::stopMixerTimer() {
  if (!mixTimer) return;
  mixTimer->setEventHandler(nullptr);
  mixTimer->cancel();
  mixTimer.reset();
}

void AudioTapSession::mixerTick() {
  mixQueue->assertCurrent();
  try {
    drainAvailableFrames(framesPerTick, /*ignoreFailureGate=*/false);
  } catch (...) {
    recordAsyncFailure(std::current_exception());
  }
}

/// Mixes the frames of both backlogs into the writer and pads the shorter one with silence: at most
/// limit frames, or all of them in one pass. Frames are paired by their order alone. Does nothing
/// after a recorded failure, unless ignoreFailureGate is set.
void AudioTapSession::drainAvailableFrames(std::optional<std::int64_t> limit,
                                           bool ignoreFailureGate) {
  if (!ignoreFailureGate && recordedAsyncFailure()) return;
  const std::int64_t available =
      std::max(systemBacklog.availableFrames(), microphoneBacklog.availableFrames());
  if (available <= 0) return;
  const std::int64_t frames = limit ? std::min(*limit, available) : available;
  StereoSamples mix = systemBacklog.consume(frames);
  const StereoSamples microphone = microphoneBacklog.consume(frames);
  mixInto(mix.left, microphone.left);
  mixInto(mix.right, microphone.right);
  writer->append(mix.left, mix.right, frames);
}

}  // namespace quenlor
