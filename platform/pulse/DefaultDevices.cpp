#include "platform/pulse/DefaultDevices.h"

#include <algorithm>
#include <pulse/introspect.h>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

using namespace std::chrono_literals;

// Each question costs the server a connection.
constexpr auto shortestInterval = 250ms;

// For events that rarely matter, such as changes of the volume, and may come many times a second.
constexpr auto moderateInterval = 1s;

// How long a change that no event told of may go unnoticed.
constexpr auto longestInterval = 5s;

// A question without an answer after this long is given up.
constexpr auto answerTime = 5s;

}  // namespace

DefaultDevices::~DefaultDevices() {
  connection.assertLocked();
  pa_context_set_subscribe_callback(connection.context(), nullptr, nullptr);
}

void DefaultDevices::watch() {
  connection.assertLocked();
  question.reset();
  pa_context_set_subscribe_callback(connection.context(), &DefaultDevices::eventCame, this);
  constexpr auto facilities = static_cast<pa_subscription_mask_t>(
      PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE);
  subscription.reset(pa_context_subscribe(connection.context(), facilities, nullptr, nullptr));
  askWithin(0s);
}

/// Only the server's own event tells of another default. Those of a device come before the server
/// has chosen, or say that a device became ready, or just tell its volume.
void DefaultDevices::eventCame(pa_context*, pa_subscription_event_type_t event, std::uint32_t,
                               void* devices) {
  const bool isOfServer =
      (event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER;
  static_cast<DefaultDevices*>(devices)->askWithin(isOfServer ? 0s : moderateInterval);
}

void DefaultDevices::askWithin(std::chrono::milliseconds delay) {
  nextQuestion = std::min(nextQuestion, Clock::now() + delay);
  askWhenDue();
}

void DefaultDevices::served() {
  if (!question) return askWhenDue();
  const bool hasFailed = !PA_CONTEXT_IS_GOOD(pa_context_get_state(question->connection.get())) ||
                         Clock::now() - askedAt > answerTime;
  if (!question->isAnswered && !hasFailed) return;
  const std::unique_ptr<const Question> over = std::move(question);
  if (over->isAnswered)
    listener(over->answer);
  else
    askWithin(moderateInterval);
}

void DefaultDevices::askWhenDue() {
  connection.assertLocked();
  const auto now = Clock::now();
  if (question || now < std::max(nextQuestion, askedAt + shortestInterval)) return;
  askedAt = now;
  nextQuestion = now + longestInterval;
  try {
    Context fresh = connection.openContext();
    question = std::make_unique<Question>();
    question->connection = std::move(fresh);
    pa_context_set_state_callback(question->connection.get(), &DefaultDevices::questionStateChanged,
                                  question.get());
  } catch (const PlatformError&) {
    // Asked again after the longest interval.
  }
}

void DefaultDevices::questionStateChanged(pa_context* context, void* question) {
  if (pa_context_get_state(context) != PA_CONTEXT_READY) return;
  constexpr auto takeSink = [](pa_context*, const pa_sink_info* info, int endOfList, void* taker) {
    if (endOfList == 0) static_cast<Question*>(taker)->answer.sink = sinkInfo(*info);
  };
  constexpr auto takeSource = [](pa_context*, const pa_source_info* info, int endOfList,
                                 void* taker) {
    auto& asked = *static_cast<Question*>(taker);
    if (endOfList == 0)
      asked.answer.source = sourceInfo(*info);
    else
      asked.isAnswered = true;  // Answers come in the order of the queries.
  };
  auto& self = *static_cast<Question*>(question);
  self.sinkQuery.reset(pa_context_get_sink_info_by_name(context, defaultSink, takeSink, &self));
  self.sourceQuery.reset(
      pa_context_get_source_info_by_name(context, defaultSource, takeSource, &self));
}

}  // namespace quenlor::platform::pulse
