#include "platform/pulse/PulseCaptureStream.h"

#include <algorithm>
#include <cstring>
#include <pulse/error.h>
#include <pulse/proplist.h>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

// How much the server should send at a time: each fragment wakes this process. PulseAudio halves
// it, since it keeps the other half for the device. Longer fragments would have the reserve run out
// when one comes late, and lose more of the recording's end, which stays behind in the server.
constexpr pa_usec_t fragmentTime = 60'000;

// Two fragments or three. Less breaks the signal when other programs keep all processors busy.
constexpr std::chrono::milliseconds usualReserve{80};

// Of the 8 kHz of a telephone headset the resampler holds back 77 ms for itself.
constexpr std::chrono::milliseconds narrowBandReserve{160};

}  // namespace

PulseCaptureStream::PulseCaptureStream(PulseConnection& streamConnection,
                                       const CaptureSource& source, Receiver samplesReceiver)
    : connection(streamConnection), name(source.mediaName), receiver(std::move(samplesReceiver)) {
  ConnectionLock held(connection);
  try {
    connect(source);
  } catch (const PlatformError&) {
    stream.reset();
    throw;
  }
}

PulseCaptureStream::~PulseCaptureStream() {
  ConnectionLock held(connection);
  stream.reset();
}

void PulseCaptureStream::Disconnecter::operator()(pa_stream* ending) const {
  pa_stream_set_state_callback(ending, nullptr, nullptr);
  pa_stream_set_read_callback(ending, nullptr, nullptr);
  pa_stream_disconnect(ending);
  pa_stream_unref(ending);
}

void PulseCaptureStream::connect(const CaptureSource& source) {
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, source.rate, source.channels.channels};
  stream.reset(pa_stream_new(connection.context(), name.c_str(), &spec, &source.channels));
  if (stream == nullptr) throw PlatformError(connection.lastError());
  pa_stream_set_state_callback(stream.get(), &PulseCaptureStream::stateChanged, this);
  pa_stream_set_read_callback(stream.get(), &PulseCaptureStream::samplesCame, this);
  pa_buffer_attr buffering{};
  buffering.maxlength = static_cast<std::uint32_t>(-1);
  buffering.fragsize = static_cast<std::uint32_t>(pa_usec_to_bytes(fragmentTime, &spec));
  constexpr auto flags =
      static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY);
  if (pa_stream_connect_record(stream.get(), source.sourceName.c_str(), &buffering, flags) < 0)
    throw PlatformError(connection.lastError());
  connection.waitUntil([this] {
    connection.assertLocked();
    return pa_stream_get_state(stream.get()) != PA_STREAM_CREATING;
  });
  if (pa_stream_get_state(stream.get()) != PA_STREAM_READY)
    throw PlatformError(connection.lastError());
}

void PulseCaptureStream::setReadable(std::function<void()> callback) {
  connection.assertLocked();
  readable = std::move(callback);
}

Operation PulseCaptureStream::run() {
  connection.assertLocked();
  constexpr auto wake = [](pa_stream*, int, void* waiting) {
    auto& waitingConnection = *static_cast<PulseConnection*>(waiting);
    waitingConnection.assertLocked();
    waitingConnection.signal();
  };
  return Operation(pa_stream_cork(stream.get(), 0, wake, &connection));
}

std::chrono::microseconds PulseCaptureStream::reserve() const {
  connection.assertLocked();
  return pa_stream_get_sample_spec(stream.get())->rate < 16'000 ? narrowBandReserve : usualReserve;
}

std::chrono::microseconds PulseCaptureStream::waiting() const {
  connection.assertLocked();
  const std::size_t bytes = pa_stream_readable_size(stream.get());
  if (bytes == static_cast<std::size_t>(-1)) return {};
  return std::chrono::microseconds(
      pa_bytes_to_usec(bytes, pa_stream_get_sample_spec(stream.get())));
}

void PulseCaptureStream::deliver() {
  connection.assertLocked();
  const std::size_t bytes = pa_stream_readable_size(stream.get());
  if (bytes == 0 || bytes == static_cast<std::size_t>(-1)) return;
  samples.resize(bytes);
  receiver({samples.data(), read(samples)});
}

void PulseCaptureStream::deliverSilence(std::chrono::microseconds duration) {
  connection.assertLocked();
  const auto time = static_cast<pa_usec_t>(duration.count());
  samples.assign(pa_usec_to_bytes(time, pa_stream_get_sample_spec(stream.get())), std::byte{0});
  receiver(samples);
}

std::size_t PulseCaptureStream::read(std::span<std::byte> room) {
  std::size_t done = 0;
  while (done < room.size()) {
    const void* data = nullptr;
    std::size_t bytes = 0;
    if (pa_stream_peek(stream.get(), &data, &bytes) < 0 || bytes == 0) break;
    // What was readable before the loop cannot have grown: only this thread adds to it.
    std::byte* const to = room.data() + done;
    if (data == nullptr)
      std::fill_n(to, bytes, std::byte{0});  // A hole: the server lost samples of this length.
    else
      std::memcpy(to, data, bytes);
    pa_stream_drop(stream.get());
    done += bytes;
  }
  return done;
}

void PulseCaptureStream::stateChanged(pa_stream* stream, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.connection.assertLocked();
  // Where the whole connection ended, the connection has said so.
  if (pa_stream_get_state(stream) == PA_STREAM_FAILED && self.connection.isGood())
    self.connection.trace("The stream \"" + self.name + "\" ended: " + self.connection.lastError());
  self.connection.signal();
}

void PulseCaptureStream::samplesCame(pa_stream*, std::size_t, void* captureStream) {
  auto& self = *static_cast<PulseCaptureStream*>(captureStream);
  self.connection.assertLocked();
  if (self.readable) self.readable();
}

}  // namespace quenlor::platform::pulse
