#pragma once

#include "platform/pulse/PulseServerInfo.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <pulse/subscribe.h>
#include <utility>

namespace quenlor::platform::pulse {

/// Watches which devices are the server's default. Never waits for the server.
///
/// PipeWire hides a change of the defaults from a client while another one is connecting, and its
/// PulseAudio server answers each connection from what that one was told. A connection that lasts
/// may therefore give outdated answers for good, and no event follows. A new one is always told
/// the present defaults. So each question goes over a connection of its own: after an event, and
/// every few seconds without one.
///
/// Everything is called with the connection's lock held.
class DefaultDevices {
 public:
  struct Answer {
    std::optional<SinkInfo> sink;
    std::optional<SourceInfo> source;
  };
  /// Takes each answer. May call askWithin().
  using Listener = std::function<void(const Answer& answer)>;

  DefaultDevices(PulseConnection& devicesConnection, Listener answerListener)
      : connection(devicesConnection), listener(std::move(answerListener)) {}
  ~DefaultDevices();
  DefaultDevices(const DefaultDevices&) = delete;
  DefaultDevices& operator=(const DefaultDevices&) = delete;

  /// Asks at once, and follows the events of the connection for as long as it lasts. To be called
  /// again when it was made anew.
  void watch();

  /// Has served() ask after this long at the latest. Where a question is under way, another one
  /// follows it.
  void askWithin(std::chrono::milliseconds delay);

  /// To be called after each serving of the connection while that is ready: asks when it is time,
  /// and passes on the answer that has come.
  void served();

 private:
  using Clock = std::chrono::steady_clock;

  struct Question {
    Context connection;
    Operation sinkQuery;
    Operation sourceQuery;
    Answer answer;
    bool isAnswered = false;
  };

  static void eventCame(pa_context* context, pa_subscription_event_type_t event,
                        std::uint32_t index, void* devices);
  static void questionStateChanged(pa_context* context, void* question);
  void askWhenDue();

  PulseConnection& connection;
  const Listener listener;
  Operation subscription;
  Clock::time_point nextQuestion;
  Clock::time_point askedAt;
  std::unique_ptr<Question> question;
};

}  // namespace quenlor::platform::pulse
