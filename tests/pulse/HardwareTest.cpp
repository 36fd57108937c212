#include "platform/AudioPlatform.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using namespace platform;

constexpr std::uint32_t globalScope = kAudioObjectPropertyScopeGlobal;
constexpr std::uint32_t inputScope = kAudioObjectPropertyScopeInput;

OSStatus statusOf(const char (&code)[5]) {
  return static_cast<OSStatus>(fourCharCode(code));
}

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
  std::unique_ptr<AudioPlatform> host = makeAudioPlatform([this](const std::string& line) {
    const std::lock_guard lock(traceMutex);
    trace.push_back(line);
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
            AudioFormat::float32(44100, 2, true).streamDescription());
  EXPECT_EQ(host->captureDevice().defaultDevice(), "microphone");
  EXPECT_EQ(host->makeEngine()->inputFormat(0).streamDescription(),
            AudioFormat::float32(16000, 1, false).streamDescription());
  EXPECT_TRUE(traceLines().empty());
}

TEST_F(Hardware, PropertyIsFoundByItsWholeAddressOnly) {
  attachTap();
  const struct {
    AudioObjectID object;
    AudioObjectPropertyAddress address;
    PropertyData kind;
    OSStatus expected;
    // Of the two that callers can do without, nothing is told.
    bool isTold;
  } cases[] = {
      {kAudioObjectSystemObject,
       {fourCharCode("dIn "), globalScope, 0},
       0u,
       statusOf("who?"),
       true},
      {kAudioObjectSystemObject, {fourCharCode("dOut"), inputScope, 0}, 0u, statusOf("who?"), true},
      {kAudioObjectSystemObject,
       {fourCharCode("dOut"), globalScope, 1},
       0u,
       statusOf("who?"),
       true},
      {kAudioObjectSystemObject,
       {fourCharCode("dOut"), globalScope, 0},
       "",
       statusOf("nope"),
       false},
      {device, {fourCharCode("sfmt"), globalScope, 0}, {}, statusOf("who?"), true},
      {device, {fourCharCode("tuid"), globalScope, 0}, "", statusOf("who?"), true},
      {tap, {fourCharCode("uid "), globalScope, 0}, "", statusOf("who?"), false},
      {0, {fourCharCode("uid "), globalScope, 0}, "", statusOf("!obj"), false},
      {999, streamFormat, {}, statusOf("!obj"), true},
  };
  std::size_t told = 0;
  for (const auto& each : cases) {
    PropertyData data = each.kind;
    EXPECT_EQ(hardware.getPropertyData(each.object, each.address, data), each.expected);
    EXPECT_EQ(data, each.kind);
    told += each.isTold ? 1 : 0;
    EXPECT_EQ(traceLines().size(), told);
  }
}

TEST_F(Hardware, WrongCallsFailWithOneTraceLineEach) {
  AudioDeviceIOProcID ioProc{};
  PropertyData format = AudioStreamBasicDescription{};
  TapDescription elsewhere;
  elsewhere.deviceUID = "no such sink";
  AudioObjectID none = 0;
  const OSStatus results[] = {
      hardware.createProcessTap(elsewhere, none),
      hardware.getPropertyData(device, streamFormat, format),
      hardware.setPropertyData(device, tapList, std::vector<std::string>{"no such tap"}),
      hardware.setPropertyData(tap, tapList, std::vector<std::string>{"no such tap"}),
      hardware.startDevice(device, ioProc),
      hardware.destroyProcessTap(device),
      hardware.destroyAggregateDevice(tap),
  };
  const OSStatus expected[] = {statusOf("stop"), statusOf("nope"), statusOf("!obj"),
                               statusOf("!obj"), statusOf("!obj"), statusOf("!obj"),
                               statusOf("!obj")};
  for (std::size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(results[i], expected[i]) << i;
  EXPECT_EQ(none, 0u);
  EXPECT_EQ(traceLines().size(), std::size(results));
}

TEST_F(Hardware, BothSourcesStartTogetherAndNothingComesAfterTheStop) {
  attachTap();
  const auto engine = host->makeEngine();
  const AudioFormat format = engine->inputFormat(0);
  const auto queue = host->makeQueue("test");
  std::atomic<int> blocks = 0;
  std::atomic<std::size_t> systemFrames = 0, microphoneFrames = 0, systemFramesAtFirst = 0;
  engine->installTap(0, 1024, format, [&](const std::shared_ptr<PCMBuffer>& buffer) {
    if (microphoneFrames == 0) systemFramesAtFirst = systemFrames.load();
    microphoneFrames += buffer->frameLength();
    ++blocks;
  });
  AudioDeviceIOProcID ioProc{};
  const auto takeSystem = [&](AudioBufferList input) {
    queue->assertCurrent();
    systemFrames += input.front().mDataByteSize / (2 * sizeof(float));
    ++blocks;
  };
  ASSERT_EQ(hardware.createIOProcID(device, queue, takeSystem, ioProc), 0);
  engine->start();
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(blocks, 0) << "Samples flowed before both sources had started.";
  ASSERT_EQ(hardware.startDevice(device, ioProc), 0);
  std::this_thread::sleep_for(800ms);
  engine->removeTap(0);
  engine->stop();
  EXPECT_EQ(hardware.stopDevice(device, ioProc), 0);
  const int blocksAtStop = blocks;
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(blocks, blocksAtStop);
  EXPECT_GE(systemFramesAtFirst, 44100 * 0.08) << "The system's reserve comes first.";
  EXPECT_NEAR(static_cast<double>(systemFrames) / 44100,
              static_cast<double>(microphoneFrames) / 16000, 0.1);
  EXPECT_EQ(hardware.destroyIOProcID(device, ioProc), 0);
  EXPECT_EQ(hardware.destroyAggregateDevice(device), 0);
  EXPECT_EQ(hardware.destroyProcessTap(tap), 0);
  EXPECT_TRUE(traceLines().empty());
}

}  // namespace
}  // namespace quenlor::test
