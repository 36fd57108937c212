#include "platform/pulse/PulseServerInfo.h"

#include <optional>

namespace quenlor::platform::pulse {
namespace {

void keep(pa_context*, const pa_sink_info* info, int endOfList, void* answer) {
  if (endOfList == 0) *static_cast<std::optional<SinkInfo>*>(answer) = sinkInfo(*info);
}

void keep(pa_context*, const pa_source_info* info, int endOfList, void* answer) {
  if (endOfList == 0) *static_cast<std::optional<SourceInfo>*>(answer) = sourceInfo(*info);
}

template <typename Info>
Info finish(PulseConnection& connection, const std::optional<Info>& answer,
            const Operation& operation) REQUIRES(connection) {
  connection.waitFor(operation);
  if (!answer) throw PlatformError(connection.lastError());
  return *answer;
}

// A device may have none.
std::string descriptionOf(const auto& info) {
  return info.description != nullptr ? info.description : info.name;
}

}  // namespace

SinkInfo sinkInfo(const pa_sink_info& info) {
  return {info.name, descriptionOf(info), info.monitor_source_name, info.sample_spec.rate};
}

SourceInfo sourceInfo(const pa_source_info& info) {
  return {info.name, descriptionOf(info), info.sample_spec.rate, info.channel_map,
          info.monitor_of_sink != PA_INVALID_INDEX};
}

SinkInfo querySink(PulseConnection& connection, const std::string& name) {
  ConnectionLock held(connection);
  std::optional<SinkInfo> answer;
  const Operation operation(
      pa_context_get_sink_info_by_name(connection.context(), name.c_str(), keep, &answer));
  return finish(connection, answer, operation);
}

SourceInfo querySource(PulseConnection& connection, const std::string& name) {
  ConnectionLock held(connection);
  std::optional<SourceInfo> answer;
  const Operation operation(
      pa_context_get_source_info_by_name(connection.context(), name.c_str(), keep, &answer));
  return finish(connection, answer, operation);
}

}  // namespace quenlor::platform::pulse
