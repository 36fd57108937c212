#pragma once

#include "platform/AudioEngine.h"
#include "platform/pulse/PulseCaptureGroup.h"
#include "platform/pulse/PulseServerInfo.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace quenlor::platform::pulse {

/// The microphone: the server's default source, unless that is the monitor of an output. It is
/// taken at its own rate and comes out at that of the recording. Later default sources are brought
/// to the form of the first one by the server.
///
/// start() makes the stream, but samples flow only once the group starts: the two sources of a
/// recording start together.
class PulseEngine final : public AudioEngine {
 public:
  PulseEngine(PulseConnection& engineConnection, PulseCaptureGroup& engineGroup)
      : connection(engineConnection), group(engineGroup) {}
  ~PulseEngine() override { stop(); }

  AudioFormat inputFormat(std::uint32_t bus) override;
  void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                  TapBlock block) override;
  void removeTap(std::uint32_t bus) override;
  void prepare() override {}
  void start() override;
  bool isRunning() const override { return hasStarted; }
  void stop() override;

 private:
  struct Tap {
    AudioFormat format;
    TapBlock block;
  };

  void deliver(const PlanarFrames& frames, std::size_t count) REQUIRES(connection);

  PulseConnection& connection;
  PulseCaptureGroup& group;
  std::optional<SourceInfo> input;
  std::optional<Tap> tap GUARDED_BY(connection);
  bool hasReportedAllocationFailure GUARDED_BY(connection) = false;
  bool hasStarted = false;
};

}  // namespace quenlor::platform::pulse
