#include "AudioTapSession.h"
#include "AudioTapSessionError.h"
#include "SidecarTrace.h"
#include "UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace quenlor {

using platform::AudioObjectID;
using platform::OSStatus;

namespace {

void throwUnlessSuccessful(OSStatus status, const char* operation) {
  if (status != platform::kAudioHardwareNoError)
    throw AudioTapSessionError::coreAudio(operation, status);
}

platform::AudioObjectPropertyAddress mainAddress(std::uint32_t selector, std::uint32_t scope) {
  return {selector, scope, platform::kAudioObjectPropertyElementMain};
}

template <typename Value>
Value readProperty(platform::AudioHardware& hardware, AudioObjectID objectID,
                   const platform::AudioObjectPropertyAddress& address, const char* operation) {
  platform::PropertyData data = Value();
  throwUnlessSuccessful(hardware.getPropertyData(objectID, address, data), operation);
  return std::get<Value>(std::move(data));
}

}  // namespace

void AudioTapSession::configureSystemTapCapture() {
  createProcessTap();
  createAggregateDevice();

  logSidecarTrace("Reading the tap UID.");
  const std::string tapUID = readTapUID(systemTapID);
  logSidecarTrace("Setting the aggregate-device tap list.");
  setTapList(aggregateDeviceID, {tapUID});
  logSidecarTrace("Reading the aggregate-device stream format.");
  systemFormat = readStreamFormat(aggregateDeviceID);

  startSystemIO();
}

void AudioTapSession::createProcessTap() {
  auto description = platform::TapDescription::stereoGlobalTapButExcludeProcesses({});
  description.name = request.title;
  description.isPrivate = true;
  description.isExclusive = false;
  try {
    description.deviceUID = readDeviceUID(defaultOutputDeviceID());
    description.stream = 0;
  } catch (const AudioTapSessionError&) {
    // The tap does not need it: without a device it captures the default output.
  }
  logSidecarTrace("Calling AudioHardwareCreateProcessTap.");
  throwUnlessSuccessful(platform.hardware().createProcessTap(description, systemTapID),
                        "create the Core Audio tap");
  logSidecarTrace("AudioHardwareCreateProcessTap succeeded.");
}

void AudioTapSession::createAggregateDevice() {
  const platform::AggregateDeviceDescription description{.name = "Quenlor Helper Capture",
                                                         .uid = randomUUIDString(),
                                                         .isPrivate = true,
                                                         .tapAutoStart = true};
  logSidecarTrace("Calling AudioHardwareCreateAggregateDevice.");
  throwUnlessSuccessful(platform.hardware().createAggregateDevice(description, aggregateDeviceID),
                        "create the aggregate device");
  logSidecarTrace("AudioHardwareCreateAggregateDevice succeeded.");
}

void AudioTapSession::startSystemIO() {
  platform::AudioHardware& hardware = platform.hardware();
  platform::AudioDeviceIOProcID created{};
  logSidecarTrace("Calling AudioDeviceCreateIOProcIDWithBlock.");
  const auto block = [weakSession = weak_from_this()](platform::AudioBufferList input) {
    if (const auto session = weakSession.lock()) session->takeSystemBuffers(input);
  };
  throwUnlessSuccessful(hardware.createIOProcID(aggregateDeviceID, callbackQueue, block, created),
                        "create the aggregate IOProc");
  ioProcID = created;
  logSidecarTrace("AudioDeviceCreateIOProcIDWithBlock succeeded.");
  logSidecarTrace("Calling AudioDeviceStart.");
  throwUnlessSuccessful(hardware.startDevice(aggregateDeviceID, created),
                        "start the aggregate device");
  logSidecarTrace("AudioDeviceStart succeeded.");
}

AudioObjectID AudioTapSession::defaultOutputDeviceID() {
  const auto address = mainAddress(platform::kAudioHardwarePropertyDefaultOutputDevice,
                                   platform::kAudioObjectPropertyScopeGlobal);
  return readProperty<AudioObjectID>(platform.hardware(), platform::kAudioObjectSystemObject,
                                     address, "query the default output device");
}

std::string AudioTapSession::readDeviceUID(AudioObjectID deviceID) {
  const auto address = mainAddress(platform::kAudioDevicePropertyDeviceUID,
                                   platform::kAudioObjectPropertyScopeGlobal);
  return readProperty<std::string>(platform.hardware(), deviceID, address,
                                   "query the output device UID");
}

std::string AudioTapSession::readTapUID(AudioObjectID tapID) {
  const auto address =
      mainAddress(platform::kAudioTapPropertyUID, platform::kAudioObjectPropertyScopeGlobal);
  return readProperty<std::string>(platform.hardware(), tapID, address, "query the tap UID");
}

void AudioTapSession::setTapList(AudioObjectID deviceID, const std::vector<std::string>& tapUIDs) {
  const auto address = mainAddress(platform::kAudioAggregateDevicePropertyTapList,
                                   platform::kAudioObjectPropertyScopeGlobal);
  throwUnlessSuccessful(platform.hardware().setPropertyData(deviceID, address, tapUIDs),
                        "attach the tap to the aggregate device");
}

platform::AudioFormat AudioTapSession::readStreamFormat(AudioObjectID deviceID) {
  const auto address = mainAddress(platform::kAudioDevicePropertyStreamFormat,
                                   platform::kAudioObjectPropertyScopeInput);
  const auto description = readProperty<platform::AudioStreamBasicDescription>(
      platform.hardware(), deviceID, address, "query the aggregate stream format");
  const std::optional<platform::AudioFormat> format = platform.makeFormat(description);
  if (!format)
    throw AudioTapSessionError::invalidAudioFormat(
        "Unable to create AVAudioFormat from the aggregate device ASBD.");
  return *format;
}

}  // namespace quenlor
