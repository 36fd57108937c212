#pragma once

#include "LocalizedError.h"

#include <string>
#include <utility>

namespace quenlor {

/// What can go wrong in the conversation with the parent.
class SidecarRuntimeError final : public LocalizedError {
 public:
  enum class Case { mixedModeRequired, stdinReadFailed, emptyStartRequest, invalidStopSignal };

  static SidecarRuntimeError mixedModeRequired(const std::string& receivedMode);
  static SidecarRuntimeError stdinReadFailed(const std::string& detail);
  static SidecarRuntimeError emptyStartRequest();
  static SidecarRuntimeError invalidStopSignal();

  /// The received mode or the detail; empty in the cases that carry nothing.
  const std::string& payload() const { return carried; }
  Case errorCase() const { return kind; }

 private:
  SidecarRuntimeError(Case which, std::string payload, const std::string& description)
      : LocalizedError(description), kind(which), carried(std::move(payload)) {}

  Case kind;
  std::string carried;
};

}  // namespace quenlor
