#pragma once

#include "platform/pulse/PulseConnection.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <pulse/channelmap.h>
#include <pulse/stream.h>
#include <span>
#include <string>
#include <vector>

namespace quenlor::platform::pulse {

/// Where a capture stream takes its samples from, and how it presents itself.
struct CaptureSource {
  std::string mediaName;
  std::string sourceName;
  std::uint32_t rate = 0;
  pa_channel_map channels{};
};

/// A record stream of 32-bit floats, the channels interleaved. It is made at rest, and its samples
/// wait in it until somebody delivers them.
class PulseCaptureStream {
 public:
  /// Takes samples in order of time. Runs with the connection's lock held, on its thread; the
  /// samples are lent for the call.
  using Receiver = std::function<void(std::span<std::byte> samples)>;

  /// Connects the stream and waits until it is ready. Throws PlatformError.
  PulseCaptureStream(PulseConnection& streamConnection, const CaptureSource& source,
                     Receiver samplesReceiver) EXCLUDES(streamConnection);

  /// Once this has returned, the receiver is not called any more. Never waits for the server.
  ~PulseCaptureStream();

  PulseCaptureStream(const PulseCaptureStream&) = delete;
  PulseCaptureStream& operator=(const PulseCaptureStream&) = delete;

  // The rest is called with the connection's lock held. The analysis cannot see that this is the
  // same lock as its callers', so the functions assert it instead of requiring it.

  /// Whom to call, on the connection's thread, when samples have come.
  void setReadable(std::function<void()> callback);

  /// Asks the server to let the samples flow; the answer comes with the operation.
  [[nodiscard]] Operation run();

  /// How much of this source should have come before its first delivery, so that its signal stays
  /// whole when later samples come late.
  std::chrono::microseconds reserve() const;

  /// How long the samples last that wait to be delivered.
  std::chrono::microseconds waiting() const;

  /// Hands everything that waits to the receiver, in one call.
  void deliver();

  /// Hands over silence, which is to come before anything that waits.
  void deliverSilence(std::chrono::microseconds duration);

 private:
  struct Disconnecter {
    void operator()(pa_stream* ending) const;
  };

  void connect(const CaptureSource& source) REQUIRES(connection);
  std::size_t read(std::span<std::byte> room) REQUIRES(connection);
  static void stateChanged(pa_stream* stream, void* captureStream);
  static void samplesCame(pa_stream* stream, std::size_t bytes, void* captureStream);

  PulseConnection& connection;
  const std::string name;
  const Receiver receiver;
  std::function<void()> readable GUARDED_BY(connection);
  std::vector<std::byte> samples GUARDED_BY(connection);
  std::unique_ptr<pa_stream, Disconnecter> stream GUARDED_BY(connection);
};

}  // namespace quenlor::platform::pulse
