#include "platform/pulse/PulseHardware.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <variant>
#include <vector>

namespace quenlor::platform::pulse {
namespace {

/// A call that fails for a reason of its own rather than the server's.
struct HardwareError {
  OSStatus status;
  const char* cause;
};

constexpr HardwareError noSuchObject{kAudioHardwareBadObjectError, "There is no such object."};
constexpr HardwareError noSuchProperty{kAudioHardwareUnknownPropertyError,
                                       "There is no such property."};
constexpr HardwareError hasIOBlock{kAudioHardwareIllegalOperationError,
                                   "The device has an IO block."};
constexpr HardwareError hasNoTap{kAudioHardwareIllegalOperationError, "The device has no tap."};

constexpr AudioObjectPropertyAddress globalAddress(std::uint32_t selector) {
  return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMain};
}

constexpr auto defaultOutputAddress = globalAddress(kAudioHardwarePropertyDefaultOutputDevice);
constexpr auto deviceUIDAddress = globalAddress(kAudioDevicePropertyDeviceUID);
constexpr auto tapUIDAddress = globalAddress(kAudioTapPropertyUID);
constexpr auto tapListAddress = globalAddress(kAudioAggregateDevicePropertyTapList);
constexpr AudioObjectPropertyAddress streamFormatAddress{kAudioDevicePropertyStreamFormat,
                                                         kAudioObjectPropertyScopeInput,
                                                         kAudioObjectPropertyElementMain};

std::array<AudioBuffer, 2> buffersOf(const PlanarFrames& frames, std::size_t count) {
  const auto bytes = static_cast<std::uint32_t>(count * sizeof(float));
  const auto plane = [&](std::size_t channel) {
    return AudioBuffer{1, bytes, const_cast<float*>(frames.data()[channel])};
  };
  return {plane(0), plane(1)};
}

}  // namespace

template <typename Work>
OSStatus PulseHardware::attempt(const char* what, Work work) {
  const auto traceCause = [this, what](const std::string& cause) {
    if (what != nullptr) connection.trace(std::string("Could not ") + what + ": " + cause);
  };
  try {
    work();
    return kAudioHardwareNoError;
  } catch (const HardwareError& error) {
    traceCause(error.cause);
    return error.status;
  } catch (const PlatformError& error) {
    traceCause(error.what());
    return kAudioHardwareNotRunningError;
  }
}

OSStatus PulseHardware::createProcessTap(const TapDescription& description, AudioObjectID& tapID) {
  return attempt("create a tap", [&] {
    if (!description.processes.empty())
      throw HardwareError{kAudioHardwareIllegalOperationError,
                          "Single processes cannot be tapped."};
    SinkInfo sink = querySink(connection, description.deviceUID.value_or(defaultSink));
    tapID = ++lastID;
    taps[tapID] = {description.name, "tap-" + std::to_string(tapID), std::move(sink)};
  });
}

OSStatus PulseHardware::destroyProcessTap(AudioObjectID tapID) {
  return attempt("destroy a tap", [&] {
    if (taps.erase(tapID) == 0) throw noSuchObject;
  });
}

OSStatus PulseHardware::createAggregateDevice(const AggregateDeviceDescription&,
                                              AudioObjectID& deviceID) {
  deviceID = ++lastID;
  devices[deviceID] = {};
  return kAudioHardwareNoError;
}

OSStatus PulseHardware::destroyAggregateDevice(AudioObjectID deviceID) {
  return attempt("destroy a device", [&] {
    if (deviceWith(deviceID).ioProc) throw hasIOBlock;
    devices.erase(deviceID);
  });
}

OSStatus PulseHardware::getPropertyData(AudioObjectID objectID,
                                        const AudioObjectPropertyAddress& address,
                                        PropertyData& data) {
  // Callers go on without a default output, so there is nothing to tell of one that is missing.
  const bool isOptional = address == defaultOutputAddress || address == deviceUIDAddress;
  return attempt(isOptional ? nullptr : "read a property", [&] {
    PropertyData value = readProperty(objectID, address);
    if (value.index() != data.index())
      throw HardwareError{kAudioHardwareIllegalOperationError, "The property is of another type."};
    data = std::move(value);
  });
}

PropertyData PulseHardware::readProperty(AudioObjectID objectID,
                                         const AudioObjectPropertyAddress& address) {
  if (objectID == kAudioObjectSystemObject) {
    if (address == defaultOutputAddress) return defaultOutputDevice();
  } else if (const auto output = outputDevices.find(objectID); output != outputDevices.end()) {
    if (address == deviceUIDAddress) return output->second;
  } else if (const auto tap = taps.find(objectID); tap != taps.end()) {
    if (address == tapUIDAddress) return tap->second.uid;
  } else {
    const AggregateDevice& device = deviceWith(objectID);
    if (address == streamFormatAddress) {
      tapOf(device);
      return AudioFormat::float32(recordedRate, 2, false).streamDescription();
    }
  }
  throw noSuchProperty;
}

AudioObjectID PulseHardware::defaultOutputDevice() {
  std::string name = querySink(connection, defaultSink).name;
  const auto known =
      std::ranges::find(outputDevices, name, [](const auto& entry) { return entry.second; });
  if (known != outputDevices.end()) return known->first;
  outputDevices[++lastID] = std::move(name);
  return lastID;
}

OSStatus PulseHardware::setPropertyData(AudioObjectID objectID,
                                        const AudioObjectPropertyAddress& address,
                                        const PropertyData& data) {
  return attempt("set a property", [&] {
    AggregateDevice& device = deviceWith(objectID);
    const auto* tapUIDs = std::get_if<std::vector<std::string>>(&data);
    if (address != tapListAddress) throw noSuchProperty;
    if (tapUIDs == nullptr || tapUIDs->size() != 1)
      throw HardwareError{kAudioHardwareIllegalOperationError, "A device takes a list of one tap."};
    device.tapID = tapWithUID(tapUIDs->front());
  });
}

OSStatus PulseHardware::createIOProcID(AudioObjectID deviceID, std::shared_ptr<DispatchQueue> queue,
                                       IOBlock block, AudioDeviceIOProcID& ioProcID) {
  return attempt("register an IO block", [&] {
    AggregateDevice& device = deviceWith(deviceID);
    if (device.ioProc) throw hasIOBlock;
    ioProcID = AudioDeviceIOProcID{++lastID};
    device.ioProc = IOProc{ioProcID, std::move(queue), std::move(block)};
  });
}

OSStatus PulseHardware::destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  return attempt("remove an IO block", [&] {
    stop(ioProcWith(deviceID, ioProcID));
    deviceWith(deviceID).ioProc.reset();
  });
}

OSStatus PulseHardware::startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  return attempt("start a device", [&] {
    IOProc& ioProc = ioProcWith(deviceID, ioProcID);
    if (!ioProc.isRunning) start(tapOf(deviceWith(deviceID)), ioProc);
  });
}

OSStatus PulseHardware::stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  return attempt("stop a device", [&] { stop(ioProcWith(deviceID, ioProcID)); });
}

void PulseHardware::start(const Tap& tap, IOProc& ioProc) {
  pa_channel_map stereo;
  pa_channel_map_init_stereo(&stereo);
  group.add(CaptureRole::system, {tap.name, tap.sink.rate, stereo}, tap.sink.monitorName,
            [&ioProc](const PlanarFrames& frames, std::size_t count) {
              const auto buffers = buffersOf(frames, count);
              ioProc.queue->sync([&] { ioProc.block(buffers); });
            });
  ioProc.isRunning = true;
  try {
    group.start();
  } catch (const PlatformError&) {
    stop(ioProc);
    throw;
  }
  connection.trace("System audio is recorded from " + tap.sink.description + ".");
  connection.renewAnswerTime();
  supervisor.start();
}

void PulseHardware::stop(IOProc& ioProc) {
  if (!std::exchange(ioProc.isRunning, false)) return;
  group.finish();
  supervisor.stop();
  group.remove(CaptureRole::system);
}

AudioObjectID PulseHardware::tapWithUID(const std::string& uid) const {
  const auto tap = std::ranges::find(taps, uid, [](const auto& entry) { return entry.second.uid; });
  if (tap == taps.end()) throw noSuchObject;
  return tap->first;
}

const PulseHardware::Tap& PulseHardware::tapOf(const AggregateDevice& device) const {
  const auto tap = taps.find(device.tapID);
  if (tap == taps.end()) throw hasNoTap;
  return tap->second;
}

PulseHardware::AggregateDevice& PulseHardware::deviceWith(AudioObjectID deviceID) {
  const auto device = devices.find(deviceID);
  if (device == devices.end()) throw noSuchObject;
  return device->second;
}

PulseHardware::IOProc& PulseHardware::ioProcWith(AudioObjectID deviceID,
                                                 AudioDeviceIOProcID ioProcID) {
  AggregateDevice& device = deviceWith(deviceID);
  if (!device.ioProc || device.ioProc->id != ioProcID) throw noSuchObject;
  return *device.ioProc;
}

}  // namespace quenlor::platform::pulse
