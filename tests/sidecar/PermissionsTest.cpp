#include "Permissions.h"
#include "platform/virtual/VirtualCaptureDevice.h"

#include <gtest/gtest.h>
#include <string>
#include <unordered_set>
#include <vector>

namespace quenlor {
namespace {

using platform::virtualhost::CallLedger;
using platform::virtualhost::VirtualCaptureDevice;
using platform::virtualhost::VirtualSettings;

TEST(Permissions, FollowsTheStatusAndTheAnswer) {
  const std::string denied = "Microphone permission was denied for the Quenlor helper.";
  const std::string restricted = "Microphone permission is restricted on this macOS account.";
  const std::string unavailable = "No microphone input device is available for the Quenlor helper.";
  const struct {
    int status;
    bool answer, hasDevice;
    std::string error;
    std::vector<std::string> asked;
  } cases[] = {
      {3, false, false, "", {"authorizationStatus"}},
      {0, true, true, "", {"authorizationStatus", "requestAccess", "defaultDevice"}},
      {0, true, false, unavailable, {"authorizationStatus", "requestAccess", "defaultDevice"}},
      {0, false, true, denied, {"authorizationStatus", "requestAccess"}},
      {1, true, true, restricted, {"authorizationStatus"}},
      {2, true, true, denied, {"authorizationStatus"}},
      {4, true, true, denied, {"authorizationStatus"}},
      {-1, true, true, denied, {"authorizationStatus"}}};
  for (const auto& c : cases) {
    CallLedger ledger;
    VirtualSettings settings;
    settings.authorizationStatus = static_cast<platform::AuthorizationStatus>(c.status);
    settings.grantsAccess = c.answer;
    if (!c.hasDevice) settings.microphone.reset();
    VirtualCaptureDevice device(ledger, settings);
    std::string text;
    try {
      Permissions::ensureMicrophoneAccess(device);
    } catch (const PermissionError& error) {
      text = error.errorDescription();
    }
    EXPECT_EQ(text, c.error) << c.status;
    EXPECT_EQ(ledger.calls(), c.asked) << c.status;
  }
}

TEST(Permissions, ErrorsAreEqualAndHashedByTheirCase) {
  const std::unordered_set<PermissionError> errors = {PermissionError::microphoneDenied(),
                                                      PermissionError::microphoneRestricted(),
                                                      PermissionError::microphoneDenied()};
  EXPECT_EQ(errors.size(), 2U);
}

}  // namespace
}  // namespace quenlor
