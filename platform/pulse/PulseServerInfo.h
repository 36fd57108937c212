#pragma once

#include "platform/pulse/PulseConnection.h"

#include <cstdint>
#include <pulse/channelmap.h>
#include <pulse/introspect.h>
#include <string>

namespace quenlor::platform::pulse {

/// Names that stand for the current default devices.
inline constexpr char defaultSink[] = "@DEFAULT_SINK@";
inline constexpr char defaultSource[] = "@DEFAULT_SOURCE@";

/// What can be heard through an output.
struct SinkInfo {
  std::string name;
  /// The device's name for people.
  std::string description;
  std::string monitorName;
  std::uint32_t rate = 0;
};

/// What an input delivers.
struct SourceInfo {
  std::string name;
  /// As in SinkInfo.
  std::string description;
  std::uint32_t rate = 0;
  pa_channel_map channels{};
  /// Carries what an output plays, so it is no microphone.
  bool isMonitor = false;
};

/// What the server's answer says.
SinkInfo sinkInfo(const pa_sink_info& info);
SourceInfo sourceInfo(const pa_source_info& info);

/// Asks the server about a device. Throws PlatformError where there is none of that name or the
/// server does not answer. Called from the control thread, without the connection's lock.
SinkInfo querySink(PulseConnection& connection, const std::string& name) EXCLUDES(connection);
SourceInfo querySource(PulseConnection& connection, const std::string& name) EXCLUDES(connection);

}  // namespace quenlor::platform::pulse
