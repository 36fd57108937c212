#pragma once

#include "LocalizedError.h"
#include "platform/AudioTypes.h"

#include <string>
#include <utility>

namespace quenlor {

/// What can go wrong in the capture session.
class AudioTapSessionError final : public LocalizedError {
 public:
  enum class Case {
    invalidAudioFormat,
    coreAudio,
    sessionAlreadyStarted,
    sessionNotRunning,
    mixedModeRequired,
    missingMicrophoneInput,
  };

  static AudioTapSessionError invalidAudioFormat(const std::string& message);
  /// operation completes "while trying to"; the status shows in decimal and as four characters.
  static AudioTapSessionError coreAudio(const std::string& operation, platform::OSStatus status);
  static AudioTapSessionError sessionAlreadyStarted();
  static AudioTapSessionError sessionNotRunning();
  static AudioTapSessionError mixedModeRequired();
  static AudioTapSessionError missingMicrophoneInput();

  Case errorCase() const { return kind; }
  /// The message of invalidAudioFormat, the operation of coreAudio; empty otherwise.
  const std::string& payload() const { return carried; }
  /// The status of coreAudio; 0 otherwise.
  platform::OSStatus status() const { return carriedStatus; }

 private:
  AudioTapSessionError(Case which, std::string payload, platform::OSStatus status,
                       const std::string& description)
      : LocalizedError(description),
        kind(which),
        carried(std::move(payload)),
        carriedStatus(status) {}

  Case kind;
  std::string carried;
  platform::OSStatus carriedStatus;
};

}  // namespace quenlor
