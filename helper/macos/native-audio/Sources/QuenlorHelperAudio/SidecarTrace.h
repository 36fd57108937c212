#pragma once

#include <filesystem>
#include <string>

namespace quenlor {

// The trace: one line per event of a run, on standard error and in a file that outlives the run.
// Nothing here reports a failure, and nothing stops or slows the recording: a line that standard
// error has no room for is dropped there.

/// The trace file, "quenlor-helper-audio.log" in the user's temporary folder. Set once, before the
/// first line and any thread; while it is empty there is no trace file.
extern std::filesystem::path sidecarLogURL;

/// Where sidecarLogURL belongs; empty where the system names no temporary folder.
std::filesystem::path defaultSidecarLogURL();

/// Writes the message, tagged and timestamped, to standard error and the trace file. May be called
/// from any thread; lines stay whole.
void logSidecarTrace(const std::string& message);

/// Writes the message for an error: untagged to standard error, and to the trace file as "Error: "
/// and the message.
void reportSidecarError(const std::string& message);

}  // namespace quenlor
