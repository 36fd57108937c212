#pragma once

#include "platform/common/CaptureLane.h"
#include "platform/pulse/PulseConnection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <pulse/channelmap.h>
#include <pulse/stream.h>
#include <string>

namespace quenlor::platform::pulse {

/// How a capture stream presents itself, and the form in which it takes samples. Where the device
/// has another rate or other channels, the server converts.
struct CaptureForm {
  std::string mediaName;
  std::uint32_t rate = 0;
  pa_channel_map channels{};
};

/// A record stream of 32-bit floats, the channels interleaved, from one source of the server's.
///
/// Everything is called with the connection's lock held, and nothing waits for the server. The
/// analysis cannot see that this is the same lock as the callers', so the functions assert it
/// instead of requiring it.
class PulseCaptureStream {
 public:
  /// Gets the stream that calls, with the connection's lock held; must not destroy it meanwhile.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void samplesCame(PulseCaptureStream& caller) = 0;
    /// The answer to askForTime(): by then the device had heard all that was read, and so many
    /// frames more.
    virtual void timeCame(PulseCaptureStream& caller, std::chrono::steady_clock::time_point time,
                          double framesToCome) = 0;
    /// Samples may be missing between those that came and those that will come.
    virtual void samplesWereInterrupted(PulseCaptureStream& caller) = 0;
    virtual void streamEnded(PulseCaptureStream& caller, const std::string& reason) = 0;
  };

  /// Asks the server for a stream that flows at once, or that rests until run(). Throws
  /// PlatformError where it cannot even be asked.
  PulseCaptureStream(PulseConnection& streamConnection, const CaptureForm& form,
                     const std::string& sourceName, bool isAtRest, Listener& streamListener);
  PulseCaptureStream(const PulseCaptureStream&) = delete;
  PulseCaptureStream& operator=(const PulseCaptureStream&) = delete;

  /// Waits until the stream is ready. Throws PlatformError. For the control thread.
  void awaitReady();

  /// Asks the server to let the samples flow; the answer comes with the operation.
  [[nodiscard]] Operation run();

  const std::string& sourceName() const { return source; }

  bool hasEnded() const {
    return isElsewhere || !PA_STREAM_IS_GOOD(pa_stream_get_state(stream.get()));
  }

  /// Where the server took it to another device: stays with that one if it is the source of this
  /// name. What has come from there can be read then.
  bool adopt(const std::string& sourceName);

  /// Hands over what has come and was not read.
  void read(CaptureLane& lane);

  /// Asks the server how much its device has heard by now, unless a question is under way.
  void askForTime();

 private:
  struct Disconnecter {
    void operator()(pa_stream* ending) const;
  };

  static void stateChanged(pa_stream* stream, void* captureStream);
  static void moved(pa_stream* stream, void* captureStream);
  static void suspensionChanged(pa_stream* stream, void* captureStream);
  static void samplesCame(pa_stream* stream, std::size_t bytes, void* captureStream);
  static void timeCame(pa_stream* stream, int success, void* captureStream);

  PulseConnection& connection;
  std::string source;
  Listener& listener;
  bool isElsewhere = false;
  const pa_sample_spec sampleSpec;
  std::unique_ptr<pa_stream, Disconnecter> stream;
  Operation timeQuery;
  std::chrono::steady_clock::time_point askedAt;
};

}  // namespace quenlor::platform::pulse
