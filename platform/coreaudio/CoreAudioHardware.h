#pragma once

#include "platform/AudioHardware.h"
#include "platform/coreaudio/Gate.h"

#include <map>
#include <memory>

namespace quenlor::platform::coreaudio {

/// The system's own audio objects, under the system's own IDs and statuses.
class CoreAudioHardware final : public AudioHardware {
 public:
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

 private:
  /// Of each IO block that is registered.
  std::map<AudioDeviceIOProcID, std::shared_ptr<Gate<IOBlock>>> gates;
};

}  // namespace quenlor::platform::coreaudio
