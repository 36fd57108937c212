#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quenlor {

// The messages between the parent and the sidecar, each one JSON object on one line. decode()
// throws JSONDecodingError unless every field is there with its type; encode() writes the fields in
// the order below and throws JSONEncodingError for a value that JSON cannot hold.

/// The parent's first message: what to record, and where to.
struct StartRequest {
  std::string mode;
  std::string outputPath;
  std::string title;

  static StartRequest decode(std::string_view json);
  std::string encode() const;
  bool operator==(const StartRequest&) const = default;
};

/// The sidecar's first reply: capture runs.
struct ReadyFrame {
  std::string status;

  static ReadyFrame decode(std::string_view json);
  std::string encode() const;
  bool operator==(const ReadyFrame&) const = default;
};

/// The sidecar's last reply: the finished recording.
struct StopResult {
  double durationSeconds;
  /// The whole file, header included.
  std::uint64_t sizeBytes;

  static StopResult decode(std::string_view json);
  std::string encode() const;
  bool operator==(const StopResult&) const = default;
};

}  // namespace quenlor
