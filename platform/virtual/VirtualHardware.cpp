#include "platform/virtual/VirtualHardware.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace quenlor::platform::virtualhost {

namespace {

constexpr AudioObjectPropertyAddress globalAddress(std::uint32_t selector) {
  return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMain};
}

constexpr AudioObjectPropertyAddress kDefaultOutputAddress =
    globalAddress(kAudioHardwarePropertyDefaultOutputDevice);
constexpr AudioObjectPropertyAddress kDeviceUIDAddress =
    globalAddress(kAudioDevicePropertyDeviceUID);
constexpr AudioObjectPropertyAddress kTapUIDAddress = globalAddress(kAudioTapPropertyUID);
constexpr AudioObjectPropertyAddress kTapListAddress =
    globalAddress(kAudioAggregateDevicePropertyTapList);
constexpr AudioObjectPropertyAddress kInputFormatAddress = {kAudioDevicePropertyStreamFormat,
                                                            kAudioObjectPropertyScopeInput,
                                                            kAudioObjectPropertyElementMain};

/// A call's name with its selector, such as getPropertyData(dOut).
std::string callName(std::string_view function, const AudioObjectPropertyAddress& address) {
  std::string name(function);
  name += '(';
  for (int shift = 24; shift >= 0; shift -= 8)
    name += static_cast<char>(address.mSelector >> shift & 0xFF);
  return name + ')';
}

}  // namespace

VirtualHardware::VirtualHardware(StreamDriver& streamDriver, CallLedger& callLedger,
                                 const VirtualSettings& deviceSettings)
    : driver(streamDriver), ledger(callLedger), settings(deviceSettings) {
  objects[kAudioObjectSystemObject] = {Kind::system, "", {}};
  if (settings.output) objects[kOutputDeviceID] = {Kind::outputDevice, kOutputDeviceUID, {}};
}

OSStatus VirtualHardware::createProcessTap(const TapDescription& description,
                                           AudioObjectID& tapID) {
  const OSStatus status = ledger.attempt("createProcessTap");
  if (status != kAudioHardwareNoError) return status;
  tapDescription = description;
  tapID = add({Kind::tap, "VirtualTap-" + std::to_string(nextID), {}}, ObjectKind::tap);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::destroyProcessTap(AudioObjectID tapID) {
  return remove(tapID, Kind::tap, ObjectKind::tap, "destroyProcessTap");
}

OSStatus VirtualHardware::createAggregateDevice(const AggregateDeviceDescription& description,
                                                AudioObjectID& deviceID) {
  const OSStatus status = ledger.attempt("createAggregateDevice");
  if (status != kAudioHardwareNoError) return status;
  aggregateDescription = description;
  deviceID = add({Kind::aggregateDevice, description.uid, {}}, ObjectKind::aggregateDevice);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::destroyAggregateDevice(AudioObjectID deviceID) {
  return remove(deviceID, Kind::aggregateDevice, ObjectKind::aggregateDevice,
                "destroyAggregateDevice");
}

OSStatus VirtualHardware::getPropertyData(AudioObjectID objectID,
                                          const AudioObjectPropertyAddress& address,
                                          PropertyData& data) {
  const OSStatus status = ledger.attempt(callName("getPropertyData", address));
  if (status != kAudioHardwareNoError) return status;
  const auto object = objects.find(objectID);
  if (object == objects.end()) return kAudioHardwareBadObjectError;
  std::optional<PropertyData> value = property(object->second, address);
  if (!value) return kAudioHardwareUnknownPropertyError;
  if (value->index() != data.index()) return kAudioHardwareBadPropertySizeError;
  data = *std::move(value);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::setPropertyData(AudioObjectID objectID,
                                          const AudioObjectPropertyAddress& address,
                                          const PropertyData& data) {
  const OSStatus status = ledger.attempt(callName("setPropertyData", address));
  if (status != kAudioHardwareNoError) return status;
  const auto object = objects.find(objectID);
  if (object == objects.end()) return kAudioHardwareBadObjectError;
  if (object->second.kind != Kind::aggregateDevice || address != kTapListAddress)
    return kAudioHardwareUnknownPropertyError;
  const auto* uids = std::get_if<std::vector<std::string>>(&data);
  if (uids == nullptr) return kAudioHardwareBadPropertySizeError;
  if (!allAreTaps(*uids)) return kAudioHardwareIllegalOperationError;
  object->second.taps = tapList = *uids;
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::createIOProcID(AudioObjectID deviceID,
                                         std::shared_ptr<DispatchQueue> queue, IOBlock block,
                                         AudioDeviceIOProcID& ioProcID) {
  const OSStatus status = ledger.attempt("createIOProcID");
  if (status != kAudioHardwareNoError) return status;
  const auto device = objects.find(deviceID);
  if (device == objects.end() || device->second.kind != Kind::aggregateDevice)
    return kAudioHardwareBadObjectError;
  ioProcID = AudioDeviceIOProcID{nextID++};
  ioProcs[ioProcID] = {deviceID, std::make_shared<const SystemReceiver>(
                                     SystemReceiver{std::move(queue), std::move(block)})};
  ledger.noteCreated(ObjectKind::ioProc);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  const OSStatus status = ledger.attempt("destroyIOProcID");
  if (status != kAudioHardwareNoError) return status;
  if (findIOProc(deviceID, ioProcID) == nullptr) return refuse("destroyIOProcID");
  stopIfRunning(ioProcID);
  ioProcs.erase(ioProcID);
  ledger.noteDestroyed(ObjectKind::ioProc);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  const OSStatus status = ledger.attempt("startDevice");
  if (status != kAudioHardwareNoError) return status;
  const IOProc* ioProc = findIOProc(deviceID, ioProcID);
  if (ioProc == nullptr) return refuse("startDevice");
  if (runningIOProc) return kAudioHardwareIllegalOperationError;
  driver.startSystem(ioProc->receiver);
  runningIOProc = ioProcID;
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  const OSStatus status = ledger.attempt("stopDevice");
  if (status != kAudioHardwareNoError) return status;
  if (findIOProc(deviceID, ioProcID) == nullptr) return refuse("stopDevice");
  stopIfRunning(ioProcID);
  return kAudioHardwareNoError;
}

AudioObjectID VirtualHardware::add(Object object, ObjectKind kind) {
  const AudioObjectID id = nextID++;
  objects[id] = std::move(object);
  ledger.noteCreated(kind);
  return id;
}

OSStatus VirtualHardware::remove(AudioObjectID id, Kind kind, ObjectKind ledgerKind,
                                 const char* caller) {
  const OSStatus status = ledger.attempt(caller);
  if (status != kAudioHardwareNoError) return status;
  const auto object = objects.find(id);
  if (object == objects.end() || object->second.kind != kind) return refuse(caller);
  objects.erase(object);
  ledger.noteDestroyed(ledgerKind);
  return kAudioHardwareNoError;
}

OSStatus VirtualHardware::refuse(const std::string& caller) {
  ledger.noteMisuse(caller + " of something that does not exist");
  return kAudioHardwareBadObjectError;
}

std::optional<PropertyData> VirtualHardware::property(
    const Object& object, const AudioObjectPropertyAddress& address) const {
  const bool isDevice = object.kind == Kind::outputDevice || object.kind == Kind::aggregateDevice;
  if (object.kind == Kind::system && address == kDefaultOutputAddress)
    return settings.output ? kOutputDeviceID : AudioObjectID{0};
  if (isDevice && address == kDeviceUIDAddress) return object.uid;
  if (object.kind == Kind::tap && address == kTapUIDAddress) return object.uid;
  // An aggregate device without a tap has no input stream.
  if (!object.taps.empty() && address == kInputFormatAddress) return streamFormat();
  return std::nullopt;
}

AudioStreamBasicDescription VirtualHardware::streamFormat() const {
  if (settings.reportedStreamFormat) return *settings.reportedStreamFormat;
  return settings.output.value_or(kDefaultOutput).format().streamDescription();
}

bool VirtualHardware::allAreTaps(const std::vector<std::string>& uids) const {
  return std::ranges::all_of(uids, [this](const std::string& uid) {
    return std::ranges::any_of(objects, [&uid](const auto& entry) {
      return entry.second.kind == Kind::tap && entry.second.uid == uid;
    });
  });
}

const VirtualHardware::IOProc* VirtualHardware::findIOProc(AudioObjectID deviceID,
                                                           AudioDeviceIOProcID ioProcID) const {
  const auto found = ioProcs.find(ioProcID);
  const bool matches = found != ioProcs.end() && found->second.deviceID == deviceID;
  return matches ? &found->second : nullptr;
}

void VirtualHardware::stopIfRunning(AudioDeviceIOProcID ioProcID) {
  if (runningIOProc != ioProcID) return;
  driver.stopSystem();
  runningIOProc.reset();
}

}  // namespace quenlor::platform::virtualhost
