#include "Permissions.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor {
namespace {

using platform::AuthorizationStatus;

enum class Answering { fromAnotherThread, atOnce };

/// Answers as it is told to and notes what it was asked.
class FakeCaptureDevice final : public platform::CaptureDevice {
 public:
  FakeCaptureDevice(AuthorizationStatus givenStatus, bool givenAnswer, bool present, Answering how)
      : status(givenStatus), answer(givenAnswer), hasDevice(present), answering(how) {}
  ~FakeCaptureDevice() override {
    if (user.joinable()) user.join();
  }
  AuthorizationStatus authorizationStatus() override {
    asked += "status ";
    return status;
  }
  void requestAccess(std::function<void(bool)> completion) override {
    asked += "prompt ";
    if (answering == Answering::atOnce) return completion(answer);
    user = std::thread([completion = std::move(completion), this] { completion(answer); });
  }
  std::optional<std::string> defaultDevice() override {
    asked += "device ";
    return hasDevice ? std::optional<std::string>("Microphone") : std::nullopt;
  }
  std::string asked;

 private:
  AuthorizationStatus status;
  bool answer;
  bool hasDevice;
  Answering answering;
  std::thread user;
};

std::optional<PermissionError::Case> errorOfAsking(FakeCaptureDevice& device) {
  try {
    Permissions::ensureMicrophoneAccess(device);
  } catch (const PermissionError& error) {
    return error.errorCase();
  }
  return std::nullopt;
}

TEST(Permissions, FollowsTheStatusAndTheAnswer) {
  using Case = PermissionError::Case;
  struct Row {
    std::int32_t status;
    bool answer;
    bool device;
    std::optional<Case> error;
    std::string asked;
  };
  const std::vector<Row> rows = {
      {3, false, false, std::nullopt, "status "},
      {0, true, true, std::nullopt, "status prompt device "},
      {0, true, false, Case::microphoneUnavailable, "status prompt device "},
      {0, false, true, Case::microphoneDenied, "status prompt "},
      {1, true, true, Case::microphoneRestricted, "status "},
      {2, true, true, Case::microphoneDenied, "status "},
      {4, true, true, Case::microphoneDenied, "status "},
      {-1, true, true, Case::microphoneDenied, "status "}};
  for (const Answering answering : {Answering::fromAnotherThread, Answering::atOnce}) {
    for (const Row& row : rows) {
      FakeCaptureDevice device(static_cast<AuthorizationStatus>(row.status), row.answer, row.device,
                               answering);
      EXPECT_EQ(errorOfAsking(device), row.error) << row.status;
      EXPECT_EQ(device.asked, row.asked) << row.status;
    }
  }
}

}  // namespace
}  // namespace quenlor
