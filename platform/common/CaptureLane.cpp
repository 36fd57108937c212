#include "platform/common/CaptureLane.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace quenlor::platform {
namespace {

using namespace std::chrono_literals;

// A source that brings nothing for this long has timed out. While this program does not run it
// misses nothing, so a pause between two servings counts for no more than a late one.
constexpr auto timeout = 500ms;
constexpr auto longestServing = 40ms;

// A server whose times scatter less than this is asked now and then, another one with each arrival:
// that knows only what its device had heard a period ago.
constexpr double exactScatter = 0.003;

// No source that is in time brings its frames later than this.
constexpr auto longestPeriod = 200ms;

// Where the server has told no time for so much sound, it sounded when it came.
constexpr double mostUntimed = 2;

// An error of the place is taken out within this many seconds: the longer a run lasts, the better
// its clock is known, and the less the pitch has to follow what that still errs by.
constexpr double leastSteeringTime = 10;
constexpr double mostSteeringTime = 30;
constexpr double mostCorrection = 0.003;

}  // namespace

CaptureLane::CaptureLane(RecordingTimeline& recordingTimeline, const Form& laneForm,
                         Receiver frameReceiver)
    : timeline(recordingTimeline),
      form(laneForm),
      receiver(std::move(frameReceiver)),
      clock(form.rate),
      waiting(std::min(form.channels, 2U)),
      nominalRatio(form.rate / timeline.nominalRate()),
      ratio(nominalRatio),
      ready(waiting.channels()) {
  makeResampler();
}

CaptureLane::~CaptureLane() {
  if (isPlaced) release();
}

void CaptureLane::makeResampler() {
  resampler.reset();
  ratio = nominalRatio;
  if (!form.leads)
    resampler = StreamResampler::variable(form.rate, timeline.nominalRate(), waiting.channels());
  else if (nominalRatio != 1)
    resampler = StreamResampler::fixed(form.rate, timeline.nominalRate(), waiting.channels());
}

void CaptureLane::append(std::span<const float> samples) {
  const std::size_t frames = samples.size() / form.channels;
  const StreamResampler::Output target = waiting.grow(frames);
  for (std::size_t channel = 0; channel < waiting.channels(); ++channel) {
    const float* source = samples.data() + channel;
    for (std::size_t i = 0; i < frames; ++i, source += form.channels)
      target[channel][i] = std::abs(*source) <= std::numeric_limits<float>::max() ? *source : 0.0F;
  }
  received += static_cast<std::int64_t>(frames);
  quietTime = {};
}

void CaptureLane::appendSilence(std::size_t frames) {
  waiting.grow(frames);
  received += static_cast<std::int64_t>(frames);
}

void CaptureLane::observe(Clock::time_point time, double framesToCome) {
  const double frames = static_cast<double>(received) + framesToCome;
  if (clock.observe(time, frames)) return;
  interrupt();
  [[maybe_unused]] const bool isFirst = clock.observe(time, frames);
}

void CaptureLane::interrupt() {
  if (!isPlaced && clock.wasObserved()) place();
  endRun();
  clock.restart();
}

bool CaptureLane::isCatchingUp(Clock::time_point now) const {
  const double brought = static_cast<double>(received - receivedBefore) / form.rate;
  const bool isFaster = brought > std::chrono::duration<double>(now - lastAdvance).count();
  return isFaster && isPlaced && clock.timeOf(static_cast<double>(received)) < now - longestPeriod;
}

void CaptureLane::advance(Clock::time_point now, bool isServerCatchingUp) {
  const auto serving = std::min<Clock::duration>(now - lastAdvance, longestServing);
  lastAdvance = now;
  receivedBefore = received;
  if (!isServerCatchingUp) quietTime += serving;
  if (isPlaced && hasTimedOut()) interrupt();
  if (!isPlaced && static_cast<double>(waiting.size()) > mostUntimed * form.rate) observe(now, 0);
  if (!isPlaced && clock.isSettled()) place();
  if (isPlaced) convert();
}

double CaptureLane::firstWaiting() const {
  return static_cast<double>(received) - static_cast<double>(waiting.size());
}

/// Lays the frames that wait where they sounded, unless all of that is recorded already.
void CaptureLane::place() {
  if (waiting.size() == 0) return;
  const double place = timeline.positionAt(clock.timeOf(firstWaiting()));
  const auto gap = static_cast<std::int64_t>(std::llround(place)) - end();
  if (gap < 0) {
    const auto overlap = static_cast<double>(-gap) * nominalRatio;
    waiting.drop(std::min(waiting.size(), static_cast<std::size_t>(std::llround(overlap))));
    if (waiting.size() == 0) return;
  } else {
    fillUntil(end() + gap);
  }
  makeResampler();
  nextFrame = placedFrame = firstWaiting();
  if (form.leads) timeline.follow(clock, nextFrame, static_cast<double>(end()), form.rate);
  isPlaced = wasPlaced = true;
}

/// Converts all that waits, with what the resampler has held back.
void CaptureLane::endRun() {
  if (isPlaced) {
    convert();
    PlanarFrames silence(waiting.channels());
    silence.grow(static_cast<std::size_t>(form.rate / 10));
    while (resampler && nextFrame + ratio / 2 < static_cast<double>(received)) {
      const double rest = (static_cast<double>(received) - nextFrame) / ratio;
      resample(silence, static_cast<std::size_t>(std::llround(rest)));
    }
    release();
  }
  isPlaced = false;
  waiting.resize(0);
}

/// The timeline goes on by the machine's clock.
void CaptureLane::release() {
  if (form.leads)
    timeline.release(clock.timeOf(static_cast<double>(received)), static_cast<double>(end()));
}

void CaptureLane::convert() {
  if (waiting.size() == 0) return;
  if (!form.leads) steer();
  if (resampler) {
    resample(waiting, std::numeric_limits<std::size_t>::max());
  } else {
    const StreamResampler::Output target = ready.grow(waiting.size());
    for (std::size_t channel = 0; channel < waiting.channels(); ++channel)
      std::copy_n(waiting.data()[channel], waiting.size(), target[channel]);
    nextFrame += static_cast<double>(waiting.size());
  }
  waiting.resize(0);
}

/// Chooses the ratio that follows both clocks, and removes the offset that is left gradually.
void CaptureLane::steer() {
  const Clock::time_point sounded = clock.timeOf(nextFrame);
  const double late =
      (static_cast<double>(end()) - timeline.positionAt(sounded)) / timeline.nominalRate();
  const double age = (nextFrame - placedFrame) / form.rate;
  const double steeringTime = std::clamp(age, leastSteeringTime, mostSteeringTime);
  const double correction =
      clock.rate() / timeline.rate() / nominalRatio * (1 + late / steeringTime) - 1;
  ratio = nominalRatio * (1 + std::clamp(correction, -mostCorrection, mostCorrection));
  resampler->setRatio(ratio);
}

/// Converts input, and gives at most that many frames.
void CaptureLane::resample(const PlanarFrames& input, std::size_t most) {
  const auto expected = static_cast<std::size_t>(static_cast<double>(input.size()) / ratio) + 64;
  const std::size_t before = ready.size();
  const std::size_t room = std::min(expected, most);
  const StreamResampler::Output target = ready.grow(room);
  const std::size_t given = resampler->process(input.data(), input.size(), target, room);
  ready.resize(before + given);
  nextFrame += ratio * static_cast<double>(given);
}

bool CaptureLane::hasTimedOut() const {
  return quietTime > timeout;
}

bool CaptureLane::isSettling() const {
  return clock.wasObserved() && !clock.isSettled() && quietTime < longestPeriod;
}

CaptureLane::Clock::duration CaptureLane::observationInterval() const {
  const bool isExact = clock.isSettled() && clock.scatter() < exactScatter;
  return isExact ? 100ms : 0ms;
}

bool CaptureLane::hasAllUntil(std::int64_t position) const {
  if (clock.wasObserved() && endOfReceived() >= static_cast<double>(position)) return true;
  return !isPlaced && quietTime > longestPeriod;
}

/// The position after the last frame that came, once it is converted.
double CaptureLane::endOfReceived() const {
  const auto frame = static_cast<double>(received);
  if (!isPlaced) return timeline.positionAt(clock.timeOf(frame));
  return static_cast<double>(end()) + (frame - nextFrame) / ratio;
}

void CaptureLane::fillUntil(std::int64_t position) {
  if (position <= end()) return;
  if (wasPlaced) lost += position - end();
  ready.grow(static_cast<std::size_t>(position - end()));
}

void CaptureLane::deliverUntil(std::int64_t position) {
  if (position <= begin) return;
  const auto count = static_cast<std::size_t>(position - begin);
  receiver(ready, count);
  ready.drop(count);
  begin = position;
}

void CaptureLane::finishAt(std::int64_t position) {
  interrupt();
  fillUntil(position);
  deliverUntil(position);
}

}  // namespace quenlor::platform
