#pragma once

#include "platform/AudioHardware.h"
#include "platform/virtual/CallLedger.h"
#include "platform/virtual/StreamDriver.h"
#include "platform/virtual/VirtualSettings.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::platform::virtualhost {

/// A hardware object model in memory: the system object, one output device, and the taps,
/// aggregate devices and IO blocks that the caller makes. IDs are never used twice.
class VirtualHardware final : public AudioHardware {
 public:
  static constexpr AudioObjectID kOutputDeviceID = 40;
  static constexpr const char* kOutputDeviceUID = "VirtualOutput";

  /// The driver and the ledger outlive the hardware.
  VirtualHardware(StreamDriver& streamDriver, CallLedger& callLedger,
                  const VirtualSettings& deviceSettings);

  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tapID) override;
  OSStatus destroyProcessTap(AudioObjectID tapID) override;
  OSStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                 AudioObjectID& deviceID) override;
  OSStatus destroyAggregateDevice(AudioObjectID deviceID) override;
  OSStatus getPropertyData(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                           PropertyData& data) override;
  OSStatus setPropertyData(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                           const PropertyData& data) override;
  OSStatus createIOProcID(AudioObjectID deviceID, std::shared_ptr<DispatchQueue> queue,
                          IOBlock block, AudioDeviceIOProcID& ioProcID) override;
  OSStatus destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override;
  OSStatus startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override;
  OSStatus stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override;

  // The arguments of the last successful call of each kind, kept after the object is destroyed.
  const std::optional<TapDescription>& lastTapDescription() const { return tapDescription; }
  const std::optional<AggregateDeviceDescription>& lastAggregateDescription() const {
    return aggregateDescription;
  }
  const std::vector<std::string>& lastTapList() const { return tapList; }

 private:
  enum class Kind { system, outputDevice, tap, aggregateDevice };

  struct Object {
    Kind kind;
    std::string uid;
    /// Of an aggregate device: the UIDs of its taps.
    std::vector<std::string> taps;
  };

  struct IOProc {
    AudioObjectID deviceID;
    std::shared_ptr<const SystemReceiver> receiver;
  };

  AudioObjectID add(Object object, ObjectKind kind);
  OSStatus remove(AudioObjectID id, Kind kind, ObjectKind ledgerKind, const char* caller);
  OSStatus refuse(const std::string& caller);
  std::optional<PropertyData> property(const Object& object,
                                       const AudioObjectPropertyAddress& address) const;
  AudioStreamBasicDescription streamFormat() const;
  bool allAreTaps(const std::vector<std::string>& uids) const;
  const IOProc* findIOProc(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) const;
  void stopIfRunning(AudioDeviceIOProcID ioProcID);

  StreamDriver& driver;
  CallLedger& ledger;
  const VirtualSettings settings;
  std::map<AudioObjectID, Object> objects;
  std::map<AudioDeviceIOProcID, IOProc> ioProcs;
  std::optional<AudioDeviceIOProcID> runningIOProc;
  std::uint32_t nextID = 100;
  std::optional<TapDescription> tapDescription;
  std::optional<AggregateDeviceDescription> aggregateDescription;
  std::vector<std::string> tapList;
};

}  // namespace quenlor::platform::virtualhost
