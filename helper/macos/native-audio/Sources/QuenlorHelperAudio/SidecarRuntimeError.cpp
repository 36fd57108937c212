#include "SidecarRuntimeError.h"

namespace quenlor {

SidecarRuntimeError SidecarRuntimeError::mixedModeRequired(const std::string& receivedMode) {
  return {Case::mixedModeRequired, receivedMode,
          "Mixed mode is required for Quenlor helper capture. Received: " + receivedMode};
}

SidecarRuntimeError SidecarRuntimeError::stdinReadFailed(const std::string& detail) {
  return {Case::stdinReadFailed, detail,
          "The helper audio sidecar could not read stdin: " + detail};
}

SidecarRuntimeError SidecarRuntimeError::emptyStartRequest() {
  return {Case::emptyStartRequest, "", "No start request was received on stdin."};
}

SidecarRuntimeError SidecarRuntimeError::invalidStopSignal() {
  return {Case::invalidStopSignal, "", "Stop signal payload was not understood."};
}

}  // namespace quenlor
