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

/// The callback that ends a query: the last of its calls says that the list has ended.
template <typename Info>
struct Query {
  PulseConnection& connection;
  std::optional<Info> answer;

  template <typename ServerInfo>
  static void receive(pa_context* context, const ServerInfo* info, int endOfList, void* query) {
    auto& self = *static_cast<Query*>(query);
    keep(context, info, endOfList, &self.answer);
  }
};

template <typename Info>
Info finish(PulseConnection& connection, const Query<Info>& query, const Operation& operation)
    REQUIRES(connection) {
  connection.waitFor(operation);
  if (!query.answer) throw PlatformError(connection.lastError());
  return *query.answer;
}

}  // namespace

SinkInfo sinkInfo(const pa_sink_info& info) {
  return {info.name, info.monitor_source_name, info.sample_spec.rate};
}

SourceInfo sourceInfo(const pa_source_info& info) {
  return {info.name, info.sample_spec.rate, info.channel_map,
          info.monitor_of_sink != PA_INVALID_INDEX};
}

SinkInfo querySink(PulseConnection& connection, const std::string& name) {
  ConnectionLock held(connection);
  Query<SinkInfo> query{connection, {}};
  const Operation operation(pa_context_get_sink_info_by_name(
      connection.context(), name.c_str(), &Query<SinkInfo>::receive<pa_sink_info>, &query));
  return finish(connection, query, operation);
}

SourceInfo querySource(PulseConnection& connection, const std::string& name) {
  ConnectionLock held(connection);
  Query<SourceInfo> query{connection, {}};
  const Operation operation(pa_context_get_source_info_by_name(
      connection.context(), name.c_str(), &Query<SourceInfo>::receive<pa_source_info>, &query));
  return finish(connection, query, operation);
}

}  // namespace quenlor::platform::pulse
