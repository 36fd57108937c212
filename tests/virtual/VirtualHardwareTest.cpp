#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualHardware.h"
#include "platform/virtual/VirtualPlatform.h"

#include <gtest/gtest.h>
#include <memory>

namespace quenlor::test {
namespace {

using namespace quenlor::platform;
using namespace quenlor::platform::virtualhost;

constexpr std::uint32_t kGlobal = kAudioObjectPropertyScopeGlobal;
constexpr std::uint32_t kInput = kAudioObjectPropertyScopeInput;

class VirtualHardwareTest : public testing::Test {
 protected:
  explicit VirtualHardwareTest(const VirtualSettings& settings = {})
      : host(std::make_shared<ManualClock>(), settings) {
    TapDescription description;
    description.name = "Meeting";
    EXPECT_EQ(hardware.createProcessTap(description, tap), 0);
    EXPECT_EQ(hardware.createAggregateDevice({.name = "Device", .uid = "A-1"}, device), 0);
  }

  OSStatus attachTap() {
    PropertyData uid = std::string();
    EXPECT_EQ(hardware.getPropertyData(tap, {kAudioTapPropertyUID, kGlobal, 0}, uid), 0);
    return setTapList(device, {std::get<std::string>(uid)});
  }

  OSStatus setTapList(AudioObjectID object, std::vector<std::string> uids) {
    return hardware.setPropertyData(object, {kAudioAggregateDevicePropertyTapList, kGlobal, 0},
                                    std::move(uids));
  }

  AudioStreamBasicDescription streamFormat() {
    PropertyData description = AudioStreamBasicDescription{};
    EXPECT_EQ(hardware.getPropertyData(device, {kAudioDevicePropertyStreamFormat, kInput, 0},
                                       description),
              0);
    return std::get<AudioStreamBasicDescription>(description);
  }

  VirtualPlatform host;
  VirtualHardware& hardware = host.hardware();
  AudioObjectID tap = 0;
  AudioObjectID device = 0;
};

TEST_F(VirtualHardwareTest, PropertiesAnswerToTheirExactAddressOnly) {
  const PropertyData number = std::uint32_t{7};
  const PropertyData text = std::string("unchanged");
  const PropertyData description = AudioStreamBasicDescription{};
  constexpr AudioObjectID system = kAudioObjectSystemObject;
  constexpr AudioObjectID output = VirtualHardware::kOutputDeviceID;
  constexpr std::uint32_t defaultOutput = kAudioHardwarePropertyDefaultOutputDevice;
  constexpr std::uint32_t uid = kAudioDevicePropertyDeviceUID;
  constexpr std::uint32_t format = kAudioDevicePropertyStreamFormat;
  ASSERT_EQ(attachTap(), 0);
  const struct {
    AudioObjectID object;
    AudioObjectPropertyAddress address;
    PropertyData asked;
    OSStatus status;
  } cases[] = {
      {system, {defaultOutput, kGlobal, 0}, number, 0},
      {system, {defaultOutput, kInput, 0}, number, kUnknownPropertyError},
      {system, {defaultOutput, kGlobal, 1}, number, kUnknownPropertyError},
      {system, {defaultOutput, kGlobal, 0}, text, kBadPropertySizeError},
      {system, {uid, kGlobal, 0}, text, kUnknownPropertyError},
      {output, {defaultOutput, kGlobal, 0}, number, kUnknownPropertyError},
      {output, {uid, kGlobal, 0}, text, 0},
      {output, {uid, kInput, 0}, text, kUnknownPropertyError},
      {output, {format, kInput, 0}, description, kUnknownPropertyError},
      {tap, {kAudioTapPropertyUID, kGlobal, 0}, text, 0},
      {tap, {uid, kGlobal, 0}, text, kUnknownPropertyError},
      {device, {kAudioTapPropertyUID, kGlobal, 0}, text, kUnknownPropertyError},
      {device, {uid, kGlobal, 0}, text, 0},
      {device, {format, kInput, 0}, description, 0},
      {device, {format, kGlobal, 0}, description, kUnknownPropertyError},
      {device, {format, kInput, 0}, number, kBadPropertySizeError},
      {0, {uid, kGlobal, 0}, text, kBadObjectError},
      {9999, {uid, kGlobal, 0}, text, kBadObjectError},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    PropertyData data = cases[i].asked;
    EXPECT_EQ(hardware.getPropertyData(cases[i].object, cases[i].address, data), cases[i].status)
        << "case " << i;
    EXPECT_EQ(data == cases[i].asked, cases[i].status != 0) << "case " << i;
  }
}

TEST_F(VirtualHardwareTest, TapListTakesTapsThatExistAndGivesTheDeviceItsStream) {
  PropertyData description = AudioStreamBasicDescription{};
  EXPECT_EQ(
      hardware.getPropertyData(device, {kAudioDevicePropertyStreamFormat, kInput, 0}, description),
      kUnknownPropertyError);
  EXPECT_EQ(setTapList(device, {"no such tap"}), kIllegalOperationError);
  EXPECT_EQ(setTapList(tap, {}), kUnknownPropertyError);
  EXPECT_EQ(setTapList(9999, {}), kBadObjectError);
  EXPECT_EQ(hardware.lastTapList(), std::vector<std::string>{});
  EXPECT_EQ(attachTap(), 0);
  EXPECT_EQ(hardware.lastTapList().size(), 1U);
  EXPECT_EQ(streamFormat(), AudioFormat::float32(44100, 2, true).streamDescription());
  EXPECT_EQ(hardware.lastTapDescription()->name, "Meeting");
  EXPECT_EQ(hardware.lastAggregateDescription()->uid, "A-1");
}

TEST_F(VirtualHardwareTest, ObjectsDieOnceAndTheirIDsNeverComeBack) {
  EXPECT_EQ(hardware.destroyProcessTap(device), kBadObjectError);
  EXPECT_EQ(hardware.destroyProcessTap(tap), 0);
  EXPECT_EQ(hardware.destroyProcessTap(tap), kBadObjectError);
  EXPECT_EQ(hardware.destroyAggregateDevice(device), 0);
  EXPECT_EQ(hardware.destroyAggregateDevice(device), kBadObjectError);
  EXPECT_EQ(host.ledger()->misuses().size(), 3U);
  AudioObjectID next = 0;
  EXPECT_EQ(hardware.createProcessTap({}, next), 0);
  EXPECT_NE(next, tap);
  EXPECT_NE(next, device);
}

TEST_F(VirtualHardwareTest, IOBlocksBelongToTheirDevice) {
  const auto queue = host.makeQueue("tap");
  AudioDeviceIOProcID first{};
  AudioDeviceIOProcID second{};
  EXPECT_EQ(hardware.createIOProcID(tap, queue, {}, first), kBadObjectError);
  ASSERT_EQ(hardware.createIOProcID(device, queue, {}, first), 0);
  ASSERT_EQ(hardware.createIOProcID(device, queue, {}, second), 0);
  EXPECT_NE(first, second);
  EXPECT_EQ(hardware.startDevice(tap, first), kBadObjectError);
  EXPECT_EQ(hardware.startDevice(device, first), 0);
  EXPECT_EQ(hardware.startDevice(device, second), kIllegalOperationError);
  EXPECT_EQ(hardware.stopDevice(device, second), 0);
  EXPECT_EQ(hardware.startDevice(device, second), kIllegalOperationError);
  EXPECT_EQ(hardware.destroyIOProcID(device, first), 0);
  EXPECT_EQ(hardware.startDevice(device, second), 0);
  EXPECT_EQ(hardware.destroyIOProcID(device, first), kBadObjectError);
}

class BareVirtualHardwareTest : public VirtualHardwareTest {
 protected:
  BareVirtualHardwareTest()
      : VirtualHardwareTest({.output = std::nullopt,
                             .microphone = std::nullopt,
                             .reportedStreamFormat = unlikeAnyDevice()}) {}

  static AudioStreamBasicDescription unlikeAnyDevice() {
    AudioStreamBasicDescription description = {};
    description.mChannelsPerFrame = 3;
    return description;
  }
};

TEST_F(BareVirtualHardwareTest, AbsentDevicesAndAnOverriddenFormat) {
  PropertyData output = std::uint32_t{7};
  EXPECT_EQ(
      hardware.getPropertyData(kAudioObjectSystemObject,
                               {kAudioHardwarePropertyDefaultOutputDevice, kGlobal, 0}, output),
      0);
  EXPECT_EQ(std::get<std::uint32_t>(output), 0U);
  EXPECT_EQ(attachTap(), 0);
  EXPECT_EQ(streamFormat(), unlikeAnyDevice());
  const auto engine = host.makeEngine();
  EXPECT_EQ(engine->inputFormat(0).channelCount(), 0U);
  EXPECT_THROW(engine->start(), PlatformError);
  EXPECT_FALSE(engine->isRunning());
  EXPECT_EQ(host.captureDevice().defaultDevice(), std::nullopt);
}

}  // namespace
}  // namespace quenlor::test
