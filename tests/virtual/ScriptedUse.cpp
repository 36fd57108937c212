#include "tests/virtual/ScriptedUse.h"

#include <future>

namespace quenlor::test {

using namespace quenlor::platform;

namespace {

std::vector<float> samplesOf(AudioBufferList buffers) {
  std::vector<float> samples;
  for (const AudioBuffer& buffer : buffers) {
    const auto* data = static_cast<const float*>(buffer.mData);
    samples.insert(samples.end(), data, data + buffer.mDataByteSize / sizeof(float));
  }
  return samples;
}

}  // namespace

void ScriptedUse::setUp() {
  tryAccess();
  setUpMicrophone();
  setUpSystem();
  tryConversion();
}

void ScriptedUse::tryAccess() {
  CaptureDevice& captureDevice = platform.captureDevice();
  note("authorizationStatus",
       captureDevice.authorizationStatus() == AuthorizationStatus::authorized);
  std::promise<bool> answer;
  captureDevice.requestAccess([&answer](bool granted) { answer.set_value(granted); });
  note("requestAccess", answer.get_future().get());
  note("defaultDevice", captureDevice.defaultDevice().has_value());
}

void ScriptedUse::setUpMicrophone() {
  try {
    engine = platform.makeEngine();
  } catch (const PlatformError&) {
  }
  note("makeEngine", engine != nullptr);
  if (engine) tryEngine();
}

void ScriptedUse::tryEngine() {
  const AudioFormat format = engine->inputFormat(0);
  note("inputFormat", format.channelCount() != 0);
  engine->installTap(0, 1024, format, [this](std::shared_ptr<PCMBuffer> buffer) {
    microphoneBuffers.push_back(samplesOf(buffer->audioBufferList()));
    onBuffer();
  });
  engine->prepare();
  try {
    engine->start();
  } catch (const PlatformError&) {
  }
  note("engine.start", engine->isRunning());
}

void ScriptedUse::setUpSystem() {
  AudioHardware& hardware = platform.hardware();
  queue = platform.makeQueue("tap");
  PropertyData output = std::uint32_t{0};
  getProperty(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice,
              kAudioObjectPropertyScopeGlobal, output);
  note("createProcessTap", hardware.createProcessTap({}, tap) == 0);
  note("createAggregateDevice",
       hardware.createAggregateDevice({.name = "Device", .uid = "uid"}, device) == 0);
  PropertyData tapUID = std::string();
  getProperty(tap, kAudioTapPropertyUID, kAudioObjectPropertyScopeGlobal, tapUID);
  note("setPropertyData(tap#)",
       hardware.setPropertyData(
           device, {kAudioAggregateDevicePropertyTapList, kAudioObjectPropertyScopeGlobal, 0},
           std::vector{std::get<std::string>(tapUID)}) == 0);
  PropertyData description = AudioStreamBasicDescription{};
  getProperty(device, kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeInput,
              description);
  const auto block = [this](AudioBufferList input) {
    queue->assertCurrent();
    systemBuffers.push_back(samplesOf(input));
    onBuffer();
  };
  note("createIOProcID", hardware.createIOProcID(device, queue, block, ioProc) == 0);
  note("startDevice", hardware.startDevice(device, ioProc) == 0);
}

void ScriptedUse::getProperty(AudioObjectID object, std::uint32_t selector, std::uint32_t scope,
                              PropertyData& data) {
  std::string name = "getPropertyData(";
  for (int shift = 24; shift >= 0; shift -= 8) name += static_cast<char>(selector >> shift);
  note(name + ')', platform.hardware().getPropertyData(object, {selector, scope, 0}, data) == 0);
}

void ScriptedUse::tryConversion() {
  timer = platform.makeTimer(queue);
  timer->schedule(platform.currentTime() - platform.currentTime(), std::chrono::seconds(1), {});
  timer->setEventHandler([] {});
  timer->resume();
  const AudioFormat mono = AudioFormat::float32(48000, 1, false);
  const AudioFormat stereo = AudioFormat::float32(48000, 2, false);
  note("makeFormat", platform.makeFormat(mono.streamDescription()).has_value());
  const auto buffer = platform.makeBuffer(stereo, 16);
  note("makeBuffer", buffer != nullptr);
  const auto converter = platform.makeConverter(mono, stereo);
  note("makeConverter", converter != nullptr);
  if (!converter || !buffer) return;
  std::exception_ptr error;
  const auto noInput = [](std::uint32_t, ConverterInputStatus& status) {
    status = ConverterInputStatus::noDataNow;
    return std::shared_ptr<PCMBuffer>();
  };
  converter->convert(*buffer, error, noInput);
  note("convert", error == nullptr);
}

void ScriptedUse::tearDown() {
  AudioHardware& hardware = platform.hardware();
  if (timer) timer->cancel();
  timer.reset();
  if (engine) {
    engine->removeTap(0);
    engine->stop();
  }
  engine.reset();
  if (device != 0) {
    note("stopDevice", hardware.stopDevice(device, ioProc) == 0);
    note("destroyIOProcID", hardware.destroyIOProcID(device, ioProc) == 0);
    note("destroyAggregateDevice", hardware.destroyAggregateDevice(device) == 0);
  }
  if (tap != 0) note("destroyProcessTap", hardware.destroyProcessTap(tap) == 0);
  queue.reset();
}

}  // namespace quenlor::test
