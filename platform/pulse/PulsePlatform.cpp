#include "platform/pulse/PulsePlatform.h"

#include "platform/common/HandoverBalance.h"
#include "platform/common/QueueTimer.h"
#include "platform/common/SerialQueue.h"
#include "platform/common/SoxrConverter.h"

namespace quenlor::platform::pulse {

namespace {

using namespace std::chrono_literals;
using Clock = EventLoop::Clock;

// Usually a recording's ticks have the connection served. Where there are none, somebody has to
// before anyone could think that the server has gone silent, and then as often as they would.
constexpr auto standbyInterval = 200ms;
constexpr auto servingInterval = 20ms;

// While the clock of a source settles, the time of what comes should be known better than a tick.
constexpr auto settlingInterval = 4ms;

}  // namespace

PulsePlatform::Server::Server(const TraceSink& trace, EventLoop& queueLoop)
    : connection(trace), loop(queueLoop), servedAt(Clock::now()) {
  {
    ConnectionLock held(connection);
    connection.setServedListener([this] {
      connection.assertLocked();
      supervisor.served();
      if (group.served()) serveSoon();
    });
  }
  standBy();
  loop.startPolling([this] {
    connection.serve();
    servedAt = Clock::now();
  });
}

PulsePlatform::Server::~Server() {
  loop.stopPolling();
}

/// Every deadline of the loop has the connection served.
void PulsePlatform::Server::serveSoon() {
  const auto now = Clock::now();
  if (now < servedSoonAt) return;
  servedSoonAt = now + settlingInterval;
  loop.postAt(servedSoonAt, [] {});
}

void PulsePlatform::Server::standBy() {
  const bool isNeeded = Clock::now() - servedAt.load() > standbyInterval;
  if (isNeeded) connection.serve();
  standbyLoop.postAt(Clock::now() + (isNeeded ? servingInterval : standbyInterval),
                     [this] { standBy(); });
}

PulsePlatform::Server& PulsePlatform::server() {
  if (!reachedServer) reachedServer.emplace(trace, eventLoop);
  return *reachedServer;
}

std::unique_ptr<AudioEngine> PulsePlatform::makeEngine() {
  return std::make_unique<PulseEngine>(server().connection, server().group);
}

std::shared_ptr<DispatchQueue> PulsePlatform::makeQueue(const std::string& label) {
  return std::make_shared<SerialQueue>(eventLoop, label);
}

std::unique_ptr<DispatchTimer> PulsePlatform::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  // Ticks count by the machine's clock. Where the sound comes faster, or came at once after a
  // pause, one tick more now and then keeps it from piling up before the mixer.
  return std::make_unique<QueueTimer>(
      eventLoop, std::move(queue),
      [this, balance = HandoverBalance()](std::chrono::nanoseconds period) mutable {
        return reachedServer && balance.tick(period, reachedServer->group.handedOver());
      });
}

std::optional<AudioFormat> PulsePlatform::makeFormat(
    const AudioStreamBasicDescription& description) {
  return AudioFormat::fromStreamDescription(description);
}

std::shared_ptr<PCMBuffer> PulsePlatform::makeBuffer(const AudioFormat& format,
                                                     std::uint32_t frameCapacity) {
  return PCMBuffer::create(format, frameCapacity);
}

std::shared_ptr<AudioConverter> PulsePlatform::makeConverter(const AudioFormat& from,
                                                             const AudioFormat& to) {
  return makeSoxrConverter(from, to);
}

std::chrono::system_clock::time_point PulsePlatform::currentTime() {
  return std::chrono::system_clock::now();
}

std::optional<std::string> PulsePlatform::defaultDevice() {
  try {
    const SourceInfo source = querySource(server().connection, defaultSource);
    if (source.isMonitor) return std::nullopt;
    return source.name;
  } catch (const PlatformError& error) {
    trace(std::string("The default source cannot be used: ") + error.what());
    return std::nullopt;
  }
}

}  // namespace quenlor::platform::pulse
