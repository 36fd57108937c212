#include "platform/pulse/CaptureTrack.h"

#include <utility>

namespace quenlor::platform::pulse {
CaptureTrack::CaptureTrack(PulseConnection& trackConnection, const CaptureForm& trackForm,
                           const std::string& sourceName, CaptureLane& trackLane,
                           EndListener endListener)
    : connection(trackConnection),
      wantedForm(trackForm),
      source(sourceName),
      lane(trackLane),
      listener(std::move(endListener)),
      stream(connect(true)) {
  stream->awaitReady();
}

std::unique_ptr<PulseCaptureStream> CaptureTrack::connect(bool isAtRest) {
  PulseCaptureStream::Listener& self = *this;
  return std::make_unique<PulseCaptureStream>(connection, wantedForm, source, isAtRest, self);
}

void CaptureTrack::follow(const std::string& sourceName) {
  source = sourceName;
  successor.reset();
  if (stream != nullptr && stream->adopt(sourceName)) return samplesCame(*stream);
  if (sourceName.empty() || (stream != nullptr && stream->hasEnded())) stream.reset();
  if (stream == nullptr) lane.interrupt();
  if (sourceName.empty()) return;
  try {
    (stream == nullptr ? stream : successor) = connect(false);
  } catch (const PlatformError& error) {
    listener(error.what());
  }
}

bool CaptureTrack::isConnected() const {
  const PulseCaptureStream* const latest = successor ? successor.get() : stream.get();
  return latest != nullptr && !latest->hasEnded();
}

const std::string& CaptureTrack::heardSourceName() const {
  return stream != nullptr ? stream->sourceName() : source;
}

void CaptureTrack::observe(std::chrono::steady_clock::time_point now) {
  if (!std::exchange(hasSamples, false) || stream == nullptr) return;
  if (now - observedAt < lane.observationInterval()) return;
  observedAt = now;
  stream->askForTime();
}

/// Takes the samples over at once: what waits in a stream is lost when the stream ends.
void CaptureTrack::samplesCame(PulseCaptureStream& caller) {
  if (&caller == successor.get()) {
    stream = std::move(successor);
    lane.interrupt();
    observedAt = {};
  }
  stream->read(lane);
  hasSamples = true;
}

void CaptureTrack::timeCame(PulseCaptureStream& caller, std::chrono::steady_clock::time_point time,
                            double framesToCome) {
  if (&caller == stream.get()) lane.observe(time, framesToCome);
}

void CaptureTrack::samplesWereInterrupted(PulseCaptureStream& caller) {
  if (&caller == stream.get()) lane.interrupt();
}

void CaptureTrack::streamEnded(PulseCaptureStream& caller, const std::string& reason) {
  if (&caller == stream.get()) {
    lane.interrupt();
    if (stream->adopt(source)) return successor.reset();
  }
  listener(reason);
}

}  // namespace quenlor::platform::pulse
