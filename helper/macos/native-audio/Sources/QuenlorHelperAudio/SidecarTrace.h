#pragma once

#include <filesystem>
#include <string_view>

namespace quenlor {

// The trace: one line per event of a run, on standard error and in a file that outlives the run.
// None of these functions reports a failure, and none stops or slows the recording: what does not
// fit into standard error is dropped, even in the middle of a line, and so is what cannot be
// written to the file.

/// Sets the folder of the trace file "quenlor-helper-audio.log". Called once, before the first line
/// and before any thread exists. Without this call, or with an empty path, there is no trace file.
void locateSidecarLog(const std::filesystem::path& temporaryFolder);

/// Writes the message, tagged and timestamped, to standard error and the trace file. May be called
/// from any thread.
void logSidecarTrace(std::string_view message) noexcept;

/// Writes the message of the error that ends the run: without a tag to standard error, as a line of
/// its own, and to the trace file as "Error: " and the message.
void reportSidecarError(std::string_view message) noexcept;

}  // namespace quenlor
