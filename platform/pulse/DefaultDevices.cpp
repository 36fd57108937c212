#include "platform/pulse/DefaultDevices.h"

#include <cstdint>
#include <pulse/introspect.h>
#include <pulse/subscribe.h>
#include <utility>

namespace quenlor::platform::pulse {
namespace {

// A change of volume is no reason to look.
bool isRelevant(pa_subscription_event_type_t event) {
  if ((event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER) return true;
  return (event & PA_SUBSCRIPTION_EVENT_TYPE_MASK) != PA_SUBSCRIPTION_EVENT_CHANGE;
}

}  // namespace

DefaultDevices::~DefaultDevices() {
  connection.assertLocked();
  pa_context_set_subscribe_callback(connection.context(), nullptr, nullptr);
}

void DefaultDevices::watch() {
  connection.assertLocked();
  // Answers of an earlier connection will not come any more.
  sinkQuery.reset();
  sourceQuery.reset();
  constexpr auto changed = [](pa_context*, pa_subscription_event_type_t event, std::uint32_t,
                              void* devices) {
    if (isRelevant(event)) static_cast<DefaultDevices*>(devices)->look();
  };
  pa_context_set_subscribe_callback(connection.context(), changed, this);
  constexpr auto facilities = static_cast<pa_subscription_mask_t>(
      PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE);
  subscription.reset(pa_context_subscribe(connection.context(), facilities, nullptr, nullptr));
  look();
}

void DefaultDevices::look() {
  if (sourceQuery != nullptr)
    isStale = true;
  else
    ask();
}

void DefaultDevices::ask() {
  connection.assertLocked();
  isStale = false;
  answer = {};
  constexpr auto takeSink = [](pa_context*, const pa_sink_info* info, int endOfList,
                               void* devices) {
    if (endOfList == 0) static_cast<DefaultDevices*>(devices)->answer.sink = sinkInfo(*info);
  };
  constexpr auto takeSource = [](pa_context*, const pa_source_info* info, int endOfList,
                                 void* devices) {
    auto& self = *static_cast<DefaultDevices*>(devices);
    if (endOfList == 0)
      self.answer.source = sourceInfo(*info);
    else
      self.answered();  // Answers come in the order of the questions.
  };
  sinkQuery.reset(
      pa_context_get_sink_info_by_name(connection.context(), defaultSink, takeSink, this));
  sourceQuery.reset(
      pa_context_get_source_info_by_name(connection.context(), defaultSource, takeSource, this));
}

void DefaultDevices::answered() {
  sourceQuery.reset();
  if (isStale)
    ask();
  else
    listener(std::exchange(answer, {}));
}

}  // namespace quenlor::platform::pulse
