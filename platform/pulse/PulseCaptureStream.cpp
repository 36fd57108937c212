#include "platform/pulse/PulseCaptureStream.h"

#include <span>
#include <sys/time.h>

namespace quenlor::platform::pulse {
namespace {

using Clock = std::chrono::steady_clock;

// A server ends the connection over a longer name.
constexpr std::size_t mostNameBytes = 255;

std::string shortened(std::string name) {
  if (name.size() <= mostNameBytes) return name;
  std::size_t length = mostNameBytes;
  constexpr auto isContinuation = [](char byte) { return (byte & 0xC0) == 0x80; };
  while (length > 0 && isContinuation(name[length])) --length;
  name.resize(length);
  return name;
}

// The server's times are of the wall clock.
Clock::time_point steadyTimeOf(const timeval& time) {
  const auto sinceEpoch =
      std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
  return Clock::now() - (std::chrono::system_clock::now().time_since_epoch() - sinceEpoch);
}

// How much the server should send at a time. PulseAudio halves it, since it keeps the other half
// for the device. Shorter fragments cost more, and longer ones delay the end of a recording.
constexpr pa_usec_t fragmentTime = 60'000;

pa_buffer_attr bufferingFor(const pa_sample_spec& spec) {
  pa_buffer_attr buffering{};
  buffering.maxlength = static_cast<std::uint32_t>(-1);
  buffering.fragsize = static_cast<std::uint32_t>(pa_usec_to_bytes(fragmentTime, &spec));
  return buffering;
}

}  // namespace

PulseCaptureStream::PulseCaptureStream(PulseConnection& streamConnection, const CaptureForm& form,
                                       const std::string& sourceName, bool isAtRest,
                                       Listener& streamListener)
    : connection(streamConnection),
      source(sourceName),
      listener(streamListener),
      sampleSpec{PA_SAMPLE_FLOAT32NE, form.rate, form.channels.channels} {
  connection.assertLocked();
  stream.reset(pa_stream_new(connection.context(), shortened(form.mediaName).c_str(), &sampleSpec,
                             &form.channels));
  if (stream == nullptr) throw PlatformError(connection.lastError());
  const pa_buffer_attr buffering = bufferingFor(sampleSpec);
  unsigned flags = PA_STREAM_ADJUST_LATENCY;
  if (isAtRest) flags |= PA_STREAM_START_CORKED;
  if (connection.canPinStreams()) flags |= PA_STREAM_DONT_MOVE;
  if (pa_stream_connect_record(stream.get(), sourceName.c_str(), &buffering,
                               static_cast<pa_stream_flags_t>(flags)) < 0)
    throw PlatformError(connection.lastError());
  pa_stream_set_state_callback(stream.get(), &PulseCaptureStream::stateChanged, this);
  pa_stream_set_moved_callback(stream.get(), &PulseCaptureStream::moved, this);
  pa_stream_set_suspended_callback(stream.get(), &PulseCaptureStream::suspensionChanged, this);
  pa_stream_set_read_callback(stream.get(), &PulseCaptureStream::samplesCame, this);
}

void PulseCaptureStream::Disconnecter::operator()(pa_stream* ending) const {
  pa_stream_set_state_callback(ending, nullptr, nullptr);
  pa_stream_set_moved_callback(ending, nullptr, nullptr);
  pa_stream_set_suspended_callback(ending, nullptr, nullptr);
  pa_stream_set_read_callback(ending, nullptr, nullptr);
  pa_stream_disconnect(ending);
  pa_stream_unref(ending);
}

void PulseCaptureStream::awaitReady() {
  connection.assertLocked();
  connection.waitUntil([this] { return pa_stream_get_state(stream.get()) != PA_STREAM_CREATING; });
  if (hasEnded()) throw PlatformError(connection.lastError());
}

Operation PulseCaptureStream::run() {
  connection.assertLocked();
  return Operation(pa_stream_cork(stream.get(), 0, nullptr, nullptr));
}

bool PulseCaptureStream::adopt(const std::string& sourceName) {
  connection.assertLocked();
  if (!isElsewhere) return false;  // Asking a stream that failed hides why it did.
  const char* const device = pa_stream_get_device_name(stream.get());
  if (device == nullptr || sourceName != device) return false;
  isElsewhere = false;
  source = sourceName;
  return !hasEnded();
}

void PulseCaptureStream::read(CaptureLane& lane) {
  const void* data = nullptr;
  std::size_t bytes = 0;
  while (pa_stream_peek(stream.get(), &data, &bytes) >= 0 && bytes > 0) {
    if (data == nullptr)
      lane.appendSilence(bytes / pa_frame_size(&sampleSpec));
    else
      lane.append({static_cast<const float*>(data), bytes / sizeof(float)});
    pa_stream_drop(stream.get());
  }
}

void PulseCaptureStream::askForTime() {
  const bool isUnderWay =
      timeQuery != nullptr && pa_operation_get_state(timeQuery.get()) == PA_OPERATION_RUNNING;
  if (isUnderWay || pa_stream_get_state(stream.get()) != PA_STREAM_READY) return;
  askedAt = Clock::now();
  timeQuery.reset(pa_stream_update_timing_info(stream.get(), timeCame, this));
}

void PulseCaptureStream::stateChanged(pa_stream*, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.connection.guard([&self] {
    self.connection.assertLocked();
    if (self.hasEnded()) self.listener.streamEnded(self, self.connection.lastError());
  });
}

/// Where it may, the server takes the stream of a device that goes away to one of the other kind, a
/// microphone's to a monitor.
void PulseCaptureStream::moved(pa_stream* stream, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  const char* const device = pa_stream_get_device_name(stream);
  if (self.isElsewhere || (device != nullptr && self.source == device)) return;
  self.isElsewhere = true;
  self.connection.guard(
      [&self] { self.listener.streamEnded(self, "The server took it to another device."); });
}

void PulseCaptureStream::suspensionChanged(pa_stream*, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.connection.guard([&self] { self.listener.samplesWereInterrupted(self); });
}

/// What the device heard is what the server has taken from it, and what waits in the device. A
/// monitor has its samples before they sound: that is what the sink's latency says.
void PulseCaptureStream::timeCame(pa_stream* stream, int success, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  const pa_timing_info* const info = pa_stream_get_timing_info(stream);
  if (success == 0 || info == nullptr || self.isElsewhere) return;
  const Clock::time_point time = steadyTimeOf(info->timestamp);
  // Somebody has set the wall clock meanwhile.
  if (time < self.askedAt || time > Clock::now()) return;
  const auto unread = static_cast<double>(info->write_index - info->read_index) /
                      static_cast<double>(pa_frame_size(&self.sampleSpec));
  const double latency =
      (static_cast<double>(info->source_usec) - static_cast<double>(info->sink_usec)) * 1e-6;
  const double framesToCome = unread + latency * self.sampleSpec.rate;
  self.connection.guard([&] { self.listener.timeCame(self, time, framesToCome); });
}

void PulseCaptureStream::samplesCame(pa_stream*, std::size_t, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  if (!self.isElsewhere) self.connection.guard([&self] { self.listener.samplesCame(self); });
}

}  // namespace quenlor::platform::pulse
