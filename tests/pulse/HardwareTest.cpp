#include "platform/AudioPlatform.h"
#include "tests/platform/Gate.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using namespace platform;

constexpr std::uint32_t globalScope = kAudioObjectPropertyScopeGlobal;
constexpr std::uint32_t inputScope = kAudioObjectPropertyScopeInput;

/// The host on a real server, with the objects of a recording.
class Hardware : public testing::Test {
 protected:
  Hardware() {
    TapDescription description = TapDescription::stereoGlobalTapButExcludeProcesses({});
    description.name = "Test";
    EXPECT_EQ(hardware.createProcessTap(description, tap), 0);
    EXPECT_EQ(hardware.createAggregateDevice({.name = "Test", .uid = "1"}, device), 0);
  }

  template <typename Value>
  Value property(AudioObjectID object, const AudioObjectPropertyAddress& address) {
    PropertyData data = Value{};
    EXPECT_EQ(hardware.getPropertyData(object, address, data), 0);
    return std::get<Value>(data);
  }

  void attachTap() {
    const auto uid = property<std::string>(tap, {kAudioTapPropertyUID, globalScope, 0});
    EXPECT_EQ(hardware.setPropertyData(device, tapList, std::vector<std::string>{uid}), 0);
  }

  std::vector<std::string> traceLines() {
    const std::lock_guard lock(traceMutex);
    return trace;
  }

  static constexpr AudioObjectPropertyAddress tapList{kAudioAggregateDevicePropertyTapList,
                                                      globalScope, 0};
  static constexpr AudioObjectPropertyAddress streamFormat{kAudioDevicePropertyStreamFormat,
                                                           inputScope, 0};
  std::mutex traceMutex;
  std::vector<std::string> trace;
  std::unique_ptr<AudioPlatform> host = makeAudioPlatform([this](std::string_view line) {
    const std::lock_guard lock(traceMutex);
    trace.emplace_back(line);
  });
  AudioHardware& hardware = host->hardware();
  AudioObjectID tap = 0;
  AudioObjectID device = 0;
};

TEST_F(Hardware, PropertiesNameTheServersDevices) {
  const auto output = property<std::uint32_t>(
      kAudioObjectSystemObject, {kAudioHardwarePropertyDefaultOutputDevice, globalScope, 0});
  EXPECT_EQ(property<std::string>(output, {kAudioDevicePropertyDeviceUID, globalScope, 0}),
            "speakers");
  attachTap();
  EXPECT_EQ(property<AudioStreamBasicDescription>(device, streamFormat),
            AudioFormat::float32(48000, 2, false).streamDescription());
  EXPECT_EQ(host->captureDevice().defaultDevice(), "microphone");
  EXPECT_EQ(host->makeEngine()->inputFormat(0).streamDescription(),
            AudioFormat::float32(48000, 1, false).streamDescription());
  EXPECT_TRUE(traceLines().empty());
}

TEST_F(Hardware, WrongCallsFailWithOneTraceLineEach) {
  AudioDeviceIOProcID ioProc{};
  PropertyData format = AudioStreamBasicDescription{};
  PropertyData number = 0u;
  TapDescription elsewhere;
  elsewhere.deviceUID = "no such sink";
  AudioObjectID none = 0;
  const std::pair<OSStatus, std::uint32_t> results[] = {
      {hardware.createProcessTap(elsewhere, none), fourCharCode("stop")},
      {hardware.getPropertyData(device, streamFormat, format), fourCharCode("nope")},
      {hardware.getPropertyData(device, {kAudioDevicePropertyStreamFormat, globalScope, 0}, format),
       fourCharCode("who?")},
      {hardware.getPropertyData(tap, {kAudioTapPropertyUID, globalScope, 0}, number),
       fourCharCode("nope")},
      {hardware.getPropertyData(999, streamFormat, format), fourCharCode("!obj")},
      {hardware.setPropertyData(device, tapList, std::vector<std::string>{"no such tap"}),
       fourCharCode("!obj")},
      {hardware.setPropertyData(tap, tapList, std::vector<std::string>{"no such tap"}),
       fourCharCode("!obj")},
      {hardware.startDevice(device, ioProc), fourCharCode("!obj")},
      {hardware.destroyProcessTap(device), fourCharCode("!obj")},
      {hardware.destroyAggregateDevice(tap), fourCharCode("!obj")},
  };
  for (const auto& [status, expected] : results)
    EXPECT_EQ(static_cast<std::uint32_t>(status), expected);
  EXPECT_EQ(none, 0u);
  EXPECT_EQ(traceLines().size(), std::size(results));
}

/// Counts the frames of both sources.
class HardwareCapture : public Hardware {
 protected:
  void start() {
    attachTap();
    engine->installTap(0, 1024, engine->inputFormat(0),
                       [this](const std::shared_ptr<PCMBuffer>& buffer) {
                         microphoneFrames += buffer->frameLength();
                       });
    const auto takeSystem = [this](AudioBufferList input) {
      queue->assertCurrent();
      systemFrames += input.front().mDataByteSize / sizeof(float);
    };
    ASSERT_EQ(hardware.createIOProcID(device, queue, takeSystem, ioProc), 0);
    engine->start();
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(microphoneFrames, 0u) << "Samples flowed before both sources had started.";
    ASSERT_EQ(hardware.startDevice(device, ioProc), 0);
  }

  void stop() {
    engine->removeTap(0);
    engine->stop();
    EXPECT_EQ(hardware.stopDevice(device, ioProc), 0);
    EXPECT_EQ(hardware.destroyIOProcID(device, ioProc), 0);
  }

  const std::unique_ptr<AudioEngine> engine = host->makeEngine();
  const std::shared_ptr<DispatchQueue> queue = host->makeQueue("test");
  AudioDeviceIOProcID ioProc{};
  std::atomic<std::size_t> systemFrames = 0, microphoneFrames = 0;
};

TEST_F(HardwareCapture, BothSourcesStartTogetherAndNothingComesAfterTheStop) {
  start();
  std::this_thread::sleep_for(800ms);
  stop();
  const std::size_t atStop = systemFrames;
  EXPECT_GE(atStop, 48000 * 8 / 10);
  EXPECT_EQ(microphoneFrames, atStop);
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(systemFrames, atStop);
  EXPECT_EQ(microphoneFrames, atStop);
  EXPECT_EQ(hardware.destroyAggregateDevice(device), 0);
  EXPECT_EQ(hardware.destroyProcessTap(tap), 0);
  EXPECT_EQ(traceLines().size(), 2u) << "One names each device.";
}

/// As a disk that hangs does, under the mixer's feet.
TEST_F(HardwareCapture, SamplesComeWhileTheQueuesHang) {
  Gate stuck, mayGoOn;
  const auto other = host->makeQueue("other");
  other->async([&] {
    stuck.open();
    mayGoOn.await();
  });
  stuck.await();
  start();
  for (int i = 0; i < 100 && systemFrames < 72'000; ++i) std::this_thread::sleep_for(100ms);
  mayGoOn.open();
  other->sync([] {});
  stop();
  EXPECT_GE(systemFrames, 72'000u);
  EXPECT_EQ(microphoneFrames, systemFrames);
}

}  // namespace
}  // namespace quenlor::test
