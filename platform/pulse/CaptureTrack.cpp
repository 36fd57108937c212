#include "platform/pulse/CaptureTrack.h"

#include <algorithm>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;
using Clock = CaptureTimeline::Clock;

// Two fragments or three. Less breaks the signal when other programs keep all processors busy.
constexpr auto usualReserve = 80ms;

// Of the 8 kHz of a telephone headset the resampler holds back 77 ms for itself.
constexpr auto narrowBandReserve = 160ms;

// Long silence goes out in pieces, to spare memory.
constexpr std::chrono::microseconds longestSilence = 1s;

}  // namespace

CaptureTrack::CaptureTrack(PulseConnection& trackConnection, const CaptureForm& trackForm,
                           const std::string& sourceName, Receiver samplesReceiver)
    : connection(trackConnection),
      wantedForm(trackForm),
      sampleSpec{PA_SAMPLE_FLOAT32NE, trackForm.rate, trackForm.channels.channels},
      receiver(std::move(samplesReceiver)),
      source(sourceName) {
  ConnectionLock held(connection);
  try {
    stream = connect(true);
    stream->awaitReady();
  } catch (const PlatformError&) {
    stream.reset();
    throw;
  }
}

CaptureTrack::~CaptureTrack() {
  ConnectionLock held(connection);
  successor.reset();
  stream.reset();
}

std::unique_ptr<PulseCaptureStream> CaptureTrack::connect(bool isAtRest) {
  PulseCaptureStream::Listener& self = *this;
  return std::make_unique<PulseCaptureStream>(connection, wantedForm, source, isAtRest, self);
}

void CaptureTrack::setListener(Listener trackListener) {
  connection.assertLocked();
  listener = std::move(trackListener);
}

Operation CaptureTrack::run() {
  connection.assertLocked();
  return stream->run();
}

void CaptureTrack::follow(const std::string& sourceName) {
  connection.assertLocked();
  source = sourceName;
  successor.reset();
  if (stream != nullptr && stream->adopt(sourceName)) return samplesCame(*stream);
  if (sourceName.empty() || (stream != nullptr && stream->hasEnded())) stream.reset();
  if (stream == nullptr) interrupt();
  if (sourceName.empty()) return;
  try {
    (stream == nullptr ? stream : successor) = connect(false);
  } catch (const PlatformError& error) {
    if (listener.streamEnded) listener.streamEnded(error.what());
  }
}

const std::string& CaptureTrack::sourceName() const {
  connection.assertLocked();
  return source;
}

bool CaptureTrack::isConnected() const {
  connection.assertLocked();
  const PulseCaptureStream* const latest = successor ? successor.get() : stream.get();
  return latest != nullptr && !latest->hasEnded();
}

const std::string& CaptureTrack::heardSourceName() const {
  connection.assertLocked();
  return stream != nullptr ? stream->sourceName() : source;
}

bool CaptureTrack::isInterrupted() const {
  connection.assertLocked();
  return timeline.wasInterrupted();
}

std::chrono::microseconds CaptureTrack::reserve() const {
  return sampleSpec.rate < 16'000 ? narrowBandReserve : usualReserve;
}

std::chrono::microseconds CaptureTrack::waiting() const {
  connection.assertLocked();
  return timeOf(samples.size());
}

void CaptureTrack::deliver(std::chrono::microseconds most) {
  connection.assertLocked();
  const std::size_t bytes = most < waiting() ? bytesOf(most) : samples.size();
  if (bytes == 0) return;
  receiver(std::span(samples).first(bytes));
  samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(bytes));
}

void CaptureTrack::beginTimeline() {
  connection.assertLocked();
  timeline.begin();
}

void CaptureTrack::beginTimelineLate(Clock::time_point time, std::chrono::microseconds due) {
  connection.assertLocked();
  timeline.beginLate(time, due);
}

void CaptureTrack::deliverSilence(std::chrono::microseconds duration) {
  connection.assertLocked();
  while (duration > 0us) {
    const auto piece = std::min(duration, longestSilence);
    silence.assign(bytesOf(piece), std::byte{0});
    if (!silence.empty()) receiver(silence);
    duration -= piece;
  }
}

void CaptureTrack::fill() {
  connection.assertLocked();
  deliverSilence(timeline.fill(Clock::now()));
}

void CaptureTrack::finish() {
  connection.assertLocked();
  deliver();
  deliverSilence(timeline.finish(Clock::now()));
}

/// Takes the samples over at once: what waits in a stream is lost when the stream ends.
void CaptureTrack::samplesCame(PulseCaptureStream& teller) {
  connection.assertLocked();
  if (&teller == successor.get()) {
    stream = std::move(successor);
    timeline.interrupt();
  }
  const std::size_t before = samples.size();
  stream->read(samples);
  const auto length = timeOf(samples.size() - before);
  if (length == 0us) return;
  const auto correction = timeline.place(Clock::now(), length);
  const auto front = samples.begin() + static_cast<std::ptrdiff_t>(before);
  if (correction > 0us)
    samples.insert(front, bytesOf(correction), std::byte{0});
  else
    samples.erase(front, front + static_cast<std::ptrdiff_t>(bytesOf(-correction)));
  if (listener.samplesCame) listener.samplesCame();
}

void CaptureTrack::interrupt() {
  timeline.interrupt();
  if (listener.interrupted) listener.interrupted();
}

void CaptureTrack::samplesWereInterrupted(PulseCaptureStream& teller) {
  connection.assertLocked();
  if (&teller == stream.get()) interrupt();
}

void CaptureTrack::streamEnded(PulseCaptureStream& teller, const std::string& reason) {
  connection.assertLocked();
  if (&teller == stream.get()) {
    interrupt();
    if (stream->adopt(source)) return successor.reset();
  }
  if (listener.streamEnded) listener.streamEnded(reason);
}

std::size_t CaptureTrack::bytesOf(std::chrono::microseconds duration) const {
  return pa_usec_to_bytes(static_cast<pa_usec_t>(duration.count()), &sampleSpec);
}

std::chrono::microseconds CaptureTrack::timeOf(std::size_t bytes) const {
  return std::chrono::microseconds(pa_bytes_to_usec(bytes, &sampleSpec));
}

}  // namespace quenlor::platform::pulse
