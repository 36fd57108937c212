#pragma once

#include "platform/common/CaptureLane.h"
#include "platform/pulse/PulseCaptureStream.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quenlor::platform::pulse {

/// One of a recording's two sources, through all the streams that it is taken from in turn. What
/// comes goes to one lane, with the times at which it sounded.
class CaptureTrack final : private PulseCaptureStream::Listener {
 public:
  /// Is called back with the connection's lock held, with the reason.
  using EndListener = std::function<void(const std::string& reason)>;

  /// Connects a stream at rest and waits until it is ready. Throws PlatformError. The lane outlives
  /// the track.
  CaptureTrack(PulseConnection& trackConnection, const CaptureForm& trackForm,
               const std::string& sourceName, CaptureLane& trackLane, EndListener endListener)
      REQUIRES(trackConnection);

  CaptureTrack(const CaptureTrack&) = delete;
  CaptureTrack& operator=(const CaptureTrack&) = delete;

  // Everything is called with the connection's lock held, and nothing waits for the server.

  /// Asks the server to let the samples flow; the answer comes with the operation.
  [[nodiscard]] Operation run() { return stream->run(); }

  /// Goes on with another source, or with none where the name is empty. The samples go on coming
  /// from the old source until the first come from the new one, unless the server has taken the
  /// stream there by itself.
  void follow(const std::string& sourceName);

  /// Where the samples are to come from; empty where they come from nowhere.
  const std::string& sourceName() const { return source; }
  bool isConnected() const;

  /// Where they come from as yet.
  const std::string& heardSourceName() const;

  const CaptureForm& form() const { return wantedForm; }

  /// Asks the server for the time of what has come since the last call, often enough for the
  /// lane's clock. To be called after each serving.
  void observe(std::chrono::steady_clock::time_point now);

 private:
  std::unique_ptr<PulseCaptureStream> connect(bool isAtRest);
  void samplesCame(PulseCaptureStream& caller) override;
  void timeCame(PulseCaptureStream& caller, std::chrono::steady_clock::time_point time,
                double framesToCome) override;
  void samplesWereInterrupted(PulseCaptureStream& caller) override;
  void streamEnded(PulseCaptureStream& caller, const std::string& reason) override;

  PulseConnection& connection;
  const CaptureForm wantedForm;
  std::string source;
  CaptureLane& lane;
  const EndListener listener;
  bool hasSamples = false;
  std::chrono::steady_clock::time_point observedAt;
  std::unique_ptr<PulseCaptureStream> stream;
  // Takes the stream's place with its first samples.
  std::unique_ptr<PulseCaptureStream> successor;
};

}  // namespace quenlor::platform::pulse
