#pragma once

#include <filesystem>
#include <string_view>

namespace quenlor {

// The trace: one line per event of a run, on standard error and in a file that outlives the run.
// Nothing here reports a failure, and nothing stops or slows the recording: what standard error has
// no room for is dropped there, even in the middle of a line, and so is what the file does not
// take.

/// Says where the trace file belongs: in that folder, as "quenlor-helper-audio.log". Called once,
/// before the first line and any thread. Without it, or an empty path, there is no trace file.
void locateSidecarLog(const std::filesystem::path& temporaryFolder);

/// Writes the message, tagged and timestamped, to standard error and the trace file. May be called
/// from any thread.
void logSidecarTrace(std::string_view message) noexcept;

/// Writes the message for the error that ends the run: untagged to standard error, where it starts
/// a line and nothing follows it, and to the trace file as "Error: " and the message.
void reportSidecarError(std::string_view message) noexcept;

}  // namespace quenlor
