#include "platform/pulse/PulseCaptureStream.h"

namespace quenlor::platform::pulse {
namespace {

// How much the server should send at a time: each fragment wakes this process. PulseAudio halves
// it, since it keeps the other half for the device. Longer fragments would have the reserve run out
// when one comes late, and lose more of the recording's end, which stays behind in the server.
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
    : connection(streamConnection), source(sourceName), listener(streamListener) {
  connection.assertLocked();
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, form.rate, form.channels.channels};
  stream.reset(pa_stream_new(connection.context(), form.mediaName.c_str(), &spec, &form.channels));
  if (stream == nullptr) throw PlatformError(connection.lastError());
  const pa_buffer_attr buffering = bufferingFor(spec);
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

void PulseCaptureStream::read(std::vector<std::byte>& samples) {
  const void* data = nullptr;
  std::size_t bytes = 0;
  while (pa_stream_peek(stream.get(), &data, &bytes) >= 0 && bytes > 0) {
    const auto* const first = static_cast<const std::byte*>(data);
    if (first == nullptr)
      samples.resize(samples.size() + bytes);  // A hole: the server lost samples of this length.
    else
      samples.insert(samples.end(), first, first + bytes);
    pa_stream_drop(stream.get());
  }
}

void PulseCaptureStream::stateChanged(pa_stream*, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.connection.assertLocked();
  if (self.hasEnded()) self.listener.streamEnded(self, self.connection.lastError());
}

/// Where it may, the server takes the stream of a device that goes away to one of the other kind, a
/// microphone's to a monitor.
void PulseCaptureStream::moved(pa_stream* stream, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  const char* const device = pa_stream_get_device_name(stream);
  if (self.isElsewhere || (device != nullptr && self.source == device)) return;
  self.isElsewhere = true;
  self.listener.streamEnded(self, "The server took it to another device.");
}

void PulseCaptureStream::suspensionChanged(pa_stream*, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.listener.samplesWereInterrupted(self);
}

void PulseCaptureStream::samplesCame(pa_stream*, std::size_t, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  if (!self.isElsewhere) self.listener.samplesCame(self);
}

}  // namespace quenlor::platform::pulse
