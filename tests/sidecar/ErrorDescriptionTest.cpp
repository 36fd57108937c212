#include "AudioTapSessionError.h"
#include "POSIXErrorName.h"
#include "Permissions.h"
#include "SidecarRuntimeError.h"
#include "WaveWriterError.h"

#include <cerrno>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

using namespace std::string_literals;

/// Texts that no other test sees come out of a failure.
TEST(ErrorDescription, IsTheFixedText) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {SidecarRuntimeError::mixedModeRequired(" mi\0xed"s).errorDescription(),
       "Mixed mode is required for Quenlor helper capture. Received:  mi\0xed"s},
      {PermissionError::microphoneRestricted().errorDescription(),
       "Microphone permission is restricted on this macOS account."},
      {PermissionError::microphoneUnavailable().errorDescription(),
       "No microphone input device is available for the Quenlor helper."},
      {WaveWriterError::invalidTargetFormat().errorDescription(),
       "WaveWriter requires 48 kHz stereo float32 PCM buffers."}};
  for (const auto& [description, text] : cases) EXPECT_EQ(description, text);
}

TEST(ErrorDescription, RendersStatusesInFourCharacters) {
  const std::vector<std::pair<std::uint32_t, std::string>> cases = {
      {0x6E6F7065, "nope"}, {0x216F626A, "!obj"},       {0x41000000, "A"},    {0x00000000, "0x0"},
      {0x00000001, "0x1"},  {0x20202020, "0x20202020"}, {0xFFFFFFCE, "ˇˇˇŒ"}, {0x0A204120, "A"},
      {0x20410920, "A"},    {0x41200042, "A \0B"s},     {0x7F800A1F, "Ä"},    {0xCA41CACA, "A"},
      {0x200A2020, "\n"},   {0xDBF0BDF5, "€\uF8FFΩı"}};
  for (const auto& [bits, text] : cases)
    EXPECT_EQ(AudioTapSessionError::coreAudio("create the Core Audio tap",
                                              static_cast<platform::OSStatus>(bits))
                  .errorDescription(),
              "Core Audio error while trying to create the Core Audio tap: " +
                  std::to_string(static_cast<platform::OSStatus>(bits)) + " (" + text + ")");
}

TEST(ErrorDescription, ComesWithTheCaseAndWhatItCarries) {
  using Error = AudioTapSessionError;
  struct Row {
    Error error;
    Error::Case errorCase;
    std::string payload;
    platform::OSStatus status;
  };
  const std::vector<Row> rows = {
      {Error::invalidAudioFormat("Why."), Error::Case::invalidAudioFormat, "Why.", 0},
      {Error::coreAudio("query", -50), Error::Case::coreAudio, "query", -50},
      {Error::sessionAlreadyStarted(), Error::Case::sessionAlreadyStarted, "", 0},
      {Error::sessionNotRunning(), Error::Case::sessionNotRunning, "", 0},
      {Error::mixedModeRequired(), Error::Case::mixedModeRequired, "", 0},
      {Error::missingMicrophoneInput(), Error::Case::missingMicrophoneInput, "", 0}};
  for (const auto& [error, errorCase, payload, status] : rows) {
    EXPECT_EQ(error.errorCase(), errorCase) << error.what();
    EXPECT_EQ(error.payload(), payload) << error.what();
    EXPECT_EQ(error.status(), status) << error.what();
  }
}

TEST(ErrorDescription, NamesPOSIXErrors) {
  EXPECT_EQ(posixErrorName(EBADF), "EBADF");
  EXPECT_EQ(posixErrorName(0), "errno 0");
  EXPECT_EQ(posixErrorName(54321), "errno 54321");
}

TEST(ErrorDescription, PermissionErrorsCompareByCase) {
  EXPECT_EQ(PermissionError::microphoneDenied(), PermissionError::microphoneDenied());
  EXPECT_NE(PermissionError::microphoneDenied(), PermissionError::microphoneRestricted());
  const std::hash<PermissionError> hash;
  EXPECT_EQ(hash(PermissionError::microphoneDenied()), hash(PermissionError::microphoneDenied()));
}

}  // namespace
}  // namespace quenlor
