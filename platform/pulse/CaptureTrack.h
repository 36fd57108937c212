#pragma once

#include "platform/pulse/CaptureTimeline.h"
#include "platform/pulse/PulseCaptureStream.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quenlor::platform::pulse {

/// One of a recording's two sources, through all the streams that it is taken from in turn: its
/// samples wait here, on an unbroken timeline and in one form, until somebody delivers them.
class CaptureTrack final : private PulseCaptureStream::Listener {
 public:
  /// Takes samples in order of time. Runs with the connection's lock held; the samples are lent for
  /// the call.
  using Receiver = std::function<void(std::span<std::byte> samples)>;

  /// Are called back with the connection's lock held.
  struct Listener {
    std::function<void()> samplesCame;
    std::function<void()> interrupted;
    std::function<void(const std::string& reason)> streamEnded;
  };

  /// Connects a stream at rest and waits until it is ready. Throws PlatformError.
  CaptureTrack(PulseConnection& trackConnection, const CaptureForm& trackForm,
               const std::string& sourceName, Receiver samplesReceiver) EXCLUDES(trackConnection);

  /// Once this has returned, the receiver is not called any more. Never waits for the server.
  ~CaptureTrack() override;

  CaptureTrack(const CaptureTrack&) = delete;
  CaptureTrack& operator=(const CaptureTrack&) = delete;

  // The rest is called with the connection's lock held, and asserts it.

  void setListener(Listener trackListener);

  /// Asks the server to let the samples flow; the answer comes with the operation.
  [[nodiscard]] Operation run();

  /// Goes on with another source, or with none where the name is empty. Never waits: the samples go
  /// on coming from the old source until the first come from the new one, unless the server has
  /// taken the stream there by itself.
  void follow(const std::string& sourceName);

  /// Where the samples are to come from; empty where they come from nowhere.
  const std::string& sourceName() const;
  bool isConnected() const;

  /// Where they come from as yet.
  const std::string& heardSourceName() const;

  /// Samples are known to be missing before the next that come.
  bool isInterrupted() const;
  const CaptureForm& form() const { return wantedForm; }

  /// How much should have come before the first delivery, so that the signal stays whole when later
  /// samples come late.
  std::chrono::microseconds reserve() const;

  /// How long the samples last that wait to be delivered.
  std::chrono::microseconds waiting() const;

  /// Hands what waits to the receiver, in one call: that much of it, or all there is.
  void deliver(std::chrono::microseconds most = std::chrono::microseconds::max());

  /// From now on samples that were lost are replaced by silence.
  void beginTimeline();

  /// As beginTimeline(), where nothing has come yet: silence of this length is due at that time.
  void beginTimelineLate(CaptureTimeline::Clock::time_point time, std::chrono::microseconds due);

  /// Hands over silence, which is to come before anything that waits.
  void deliverSilence(std::chrono::microseconds duration);

  /// Hands over the silence that is due by now because no samples come.
  void fill();

  /// Hands over all that is left of the recording.
  void finish();

 private:
  std::unique_ptr<PulseCaptureStream> connect(bool isAtRest) REQUIRES(connection);
  void interrupt() REQUIRES(connection);
  void samplesCame(PulseCaptureStream& teller) override;
  void samplesWereInterrupted(PulseCaptureStream& teller) override;
  void streamEnded(PulseCaptureStream& teller, const std::string& reason) override;
  std::size_t bytesOf(std::chrono::microseconds duration) const;
  std::chrono::microseconds timeOf(std::size_t bytes) const;

  PulseConnection& connection;
  const CaptureForm wantedForm;
  const pa_sample_spec sampleSpec;
  const Receiver receiver;
  Listener listener GUARDED_BY(connection);
  std::string source GUARDED_BY(connection);
  CaptureTimeline timeline GUARDED_BY(connection);
  std::vector<std::byte> samples GUARDED_BY(connection);
  std::vector<std::byte> silence GUARDED_BY(connection);
  std::unique_ptr<PulseCaptureStream> stream GUARDED_BY(connection);
  // Takes the stream's place with its first samples.
  std::unique_ptr<PulseCaptureStream> successor GUARDED_BY(connection);
};

}  // namespace quenlor::platform::pulse
