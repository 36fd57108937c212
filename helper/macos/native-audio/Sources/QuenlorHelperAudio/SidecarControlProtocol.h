#pragma once

#include "BridgePayloads.h"

#include <string>
#include <string_view>

namespace quenlor {

/// The JSON form of the parent's stop message.
struct StopSignal {
  std::string command;

  /// Throws JSONDecodingError unless json is an object with a string named command.
  static StopSignal decode(std::string_view json);
};

/// Decodes incoming frames. Pure functions; a frame is a line without its line feed.
class SidecarControlProtocol {
 public:
  SidecarControlProtocol() = delete;

  /// frame without the tabs, line feeds, carriage returns and blanks at its ends. A view into it.
  static std::string_view trimmed(std::string_view frame);

  /// Throws SidecarRuntimeError::emptyStartRequest for a blank frame and JSONDecodingError for one
  /// that does not decode. The values are not checked.
  static StartRequest decodeStartRequestFrame(std::string_view frame);

  /// True for a stop: a blank frame, the word stop or {"command":"stop"}, in any letter case.
  /// Throws SidecarRuntimeError::invalidStopSignal for every other frame and so never returns
  /// false.
  static bool parseStopFrame(std::string_view frame);
};

}  // namespace quenlor
