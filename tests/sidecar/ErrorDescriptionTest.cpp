#include "AudioTapSessionError.h"
#include "POSIXErrorName.h"
#include "SidecarRuntimeError.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

using namespace std::string_literals;

TEST(ErrorDescription, RendersStatusesInFourCharacters) {
  const std::vector<std::pair<std::uint32_t, std::string>> cases = {
      {0x6E6F7065, "nope"},       {0x216F626A, "!obj"}, {0x41000000, "A"},
      {0x00000000, "0x0"},        {0x00000001, "0x1"},  {0x20202020, "0x20202020"},
      {0xFFFFFFCE, "ˇˇˇŒ"},       {0x0A204120, "A"},    {0x20410920, "A"},
      {0x41200042, "A \0B"s},     {0x7F800A1F, "Ä"},    {0xCA41CACA, "A"},
      {0xCACACACA, "0xCACACACA"}, {0x200A2020, "\n"},   {0xDBF0BDF5, "€\uF8FFΩı"}};
  for (const auto& [bits, text] : cases) {
    const auto status = static_cast<platform::OSStatus>(bits);
    EXPECT_EQ(
        AudioTapSessionError::coreAudio("start it", status).errorDescription(),
        "Core Audio error while trying to start it: " + std::to_string(status) + " (" + text + ")");
  }
}

TEST(ErrorDescription, KeepsWhatTheErrorCarries) {
  EXPECT_EQ(AudioTapSessionError::coreAudio("start it", -50).payload(), "start it");
  EXPECT_EQ(AudioTapSessionError::coreAudio("start it", -50).status(), -50);
  EXPECT_EQ(SidecarRuntimeError::mixedModeRequired("Mixed").payload(), "Mixed");
}

TEST(ErrorDescription, NamesPOSIXErrors) {
  EXPECT_EQ(posixErrorName(9), "EBADF");
  EXPECT_EQ(posixErrorName(0), "errno 0");
  EXPECT_EQ(posixErrorName(54321), "errno 54321");
}

}  // namespace
}  // namespace quenlor
