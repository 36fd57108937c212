#pragma once

#include "platform/AudioPlatform.h"
#include "platform/common/EventLoop.h"
#include "platform/pulse/PulseEngine.h"
#include "platform/pulse/PulseHardware.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace quenlor::platform::pulse {

/// A Linux desktop with a sound server that speaks PulseAudio's protocol.
///
/// The server is reached at the first call that needs it: makeEngine(), hardware() or the capture
/// device's defaultDevice(). Where it cannot be, the first two throw PlatformError, and the last
/// gives nothing.
class PulsePlatform final : public AudioPlatform, private CaptureDevice {
 public:
  explicit PulsePlatform(TraceSink traceSink) : trace(std::move(traceSink)) {}

  AudioHardware& hardware() override { return server().hardware; }
  CaptureDevice& captureDevice() override { return *this; }
  std::unique_ptr<AudioEngine> makeEngine() override;
  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override;
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override;
  std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) override;
  std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                        std::uint32_t frameCapacity) override;
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                const AudioFormat& to) override;
  std::chrono::system_clock::time_point currentTime() override;

 private:
  struct Server {
    Server(const TraceSink& trace, EventLoop& queueLoop);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Serves the connection where the other loop has not, and sees to its own next call.
    void standBy();

    /// Has the connection served before the next tick.
    void serveSoon() REQUIRES(connection);

    PulseConnection connection;
    PulseCaptureGroup group{connection};
    PulseSupervisor supervisor{connection, group};
    PulseHardware hardware{connection, group, supervisor};

    EventLoop& loop;
    EventLoop::Clock::time_point servedSoonAt GUARDED_BY(connection);
    std::atomic<EventLoop::Clock::time_point> servedAt;
    // Runs standBy(), for while there are no ticks, or a slow disk holds them up.
    EventLoop standbyLoop;
  };

  // A desktop asks nobody before a program records.
  AuthorizationStatus authorizationStatus() override { return AuthorizationStatus::authorized; }
  void requestAccess(std::function<void(bool granted)> completion) override { completion(true); }
  std::optional<std::string> defaultDevice() override;

  Server& server();

  const TraceSink trace;
  // Serves the connection besides running the queues and timers: samples go from the server to the
  // file on one thread, which wakes once a tick.
  EventLoop eventLoop;
  std::optional<Server> reachedServer;
};

}  // namespace quenlor::platform::pulse
