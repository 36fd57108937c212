#pragma once

#include "platform/AudioTypes.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::platform {

/// What a process tap captures, and its name.
struct TapDescription {
  /// A stereo mix of all processes but the given ones.
  static TapDescription stereoGlobalTapButExcludeProcesses(std::vector<AudioObjectID> excluded) {
    TapDescription description;
    description.processes = std::move(excluded);
    description.isExclusive = true;
    return description;
  }

  std::vector<AudioObjectID> processes;
  /// Whether the processes are excluded (true) or included (false). With an empty list the tap
  /// captures everything, either way.
  bool isExclusive = false;
  bool isPrivate = false;
  std::string name;
  /// The device whose output is tapped; if absent, the current default output.
  std::optional<std::string> deviceUID;
  std::optional<int> stream;
};

/// The settings of an aggregate device, by their keys: "name", "uid", "private", "tapautostart".
struct AggregateDeviceDescription {
  std::string name;
  std::string uid;
  bool isPrivate = false;
  bool tapAutoStart = false;
};

}  // namespace quenlor::platform
