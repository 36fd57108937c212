#include "platform/virtual/VirtualEngine.h"

#include "platform/AudioPlatform.h"

#include <string>
#include <utility>

namespace quenlor::platform::virtualhost {

VirtualEngine::VirtualEngine(StreamDriver& streamDriver, CallLedger& callLedger,
                             std::optional<AudioFormat> deviceFormat)
    : driver(streamDriver), ledger(callLedger), format(deviceFormat) {
  ledger.noteCreated(ObjectKind::engine);
}

// The engine may be destroyed inside a block, where it must not wait for the devices' thread.
VirtualEngine::~VirtualEngine() {
  if (tap) {
    driver.forgetMicrophone(tap);
    ledger.noteDestroyed(ObjectKind::engineTap);
  }
  ledger.noteDestroyed(ObjectKind::engine);
}

AudioFormat VirtualEngine::inputFormat(std::uint32_t bus) {
  noteWrongBus(bus, "inputFormat");
  const OSStatus status = ledger.attempt("inputFormat");
  if (status != kAudioHardwareNoError || !format) return AudioFormat::float32(0, 0, false);
  return *format;
}

void VirtualEngine::installTap(std::uint32_t bus, std::uint32_t bufferSize,
                               const AudioFormat& tapFormat, TapBlock block) {
  ledger.record("installTap(" + std::to_string(bufferSize) + ')');
  noteWrongBus(bus, "installTap");
  if (tapFormat != format) ledger.noteMisuse("installTap in a format that is not the input's");
  if (tap) {
    ledger.noteMisuse("installTap on a bus that has a tap");
    dropTap();
  }
  tap = std::make_shared<const TapBlock>(std::move(block));
  ledger.noteCreated(ObjectKind::engineTap);
  if (running) driver.startMicrophone(tap);
}

void VirtualEngine::removeTap(std::uint32_t bus) {
  ledger.record("removeTap");
  noteWrongBus(bus, "removeTap");
  if (tap) dropTap();
}

void VirtualEngine::prepare() {
  ledger.record("engine.prepare");
}

void VirtualEngine::start() {
  const OSStatus status = ledger.attempt("engine.start");
  if (status != kAudioHardwareNoError) throw PlatformError("The virtual engine failed to start.");
  if (!format) throw PlatformError("The virtual engine has no input.");
  running = true;
  if (tap) driver.startMicrophone(tap);
}

bool VirtualEngine::isRunning() const {
  ledger.record("engine.isRunning");
  return running;
}

void VirtualEngine::stop() {
  ledger.record("engine.stop");
  running = false;
  if (tap) driver.stopMicrophone(tap);
}

void VirtualEngine::noteWrongBus(std::uint32_t bus, const std::string& caller) {
  if (bus != 0) ledger.noteMisuse(caller + " on a bus that does not exist");
}

void VirtualEngine::dropTap() {
  driver.stopMicrophone(tap);
  tap = nullptr;
  ledger.noteDestroyed(ObjectKind::engineTap);
}

}  // namespace quenlor::platform::virtualhost
