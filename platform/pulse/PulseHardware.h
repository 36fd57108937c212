#pragma once

#include "platform/AudioHardware.h"
#include "platform/pulse/PulseCaptureGroup.h"
#include "platform/pulse/PulseServerInfo.h"
#include "platform/pulse/PulseSupervisor.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace quenlor::platform::pulse {

/// System audio as hardware objects: an output device is a sink, a process tap its monitor, and an
/// aggregate device with the tap in its list records from that.
///
/// The server knows nothing of these objects until a device starts: then there is one record
/// stream, named after the tap, which from then on follows the default output. A failure leaves one
/// line in the trace with its cause.
class PulseHardware final : public AudioHardware {
 public:
  PulseHardware(PulseConnection& hardwareConnection, PulseCaptureGroup& hardwareGroup,
                PulseSupervisor& hardwareSupervisor)
      : connection(hardwareConnection), group(hardwareGroup), supervisor(hardwareSupervisor) {}

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
  struct Tap {
    std::string name;
    std::string uid;
    SinkInfo sink;
  };

  /// The one IO block of a device.
  struct IOProc {
    AudioDeviceIOProcID id;
    std::shared_ptr<DispatchQueue> queue;
    IOBlock block;
    bool isRunning = false;
  };

  struct AggregateDevice {
    AudioObjectID tapID = 0;
    std::optional<IOProc> ioProc;
  };

  /// Runs work; where it fails, says in the trace what it was and why, unless what is null.
  template <typename Work>
  OSStatus attempt(const char* what, Work work);
  PropertyData readProperty(AudioObjectID objectID, const AudioObjectPropertyAddress& address);
  AudioObjectID defaultOutputDevice();
  AudioObjectID tapWithUID(const std::string& uid) const;
  const Tap& tapOf(const AggregateDevice& device) const;
  AggregateDevice& deviceWith(AudioObjectID deviceID);
  IOProc& ioProcWith(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID);
  void start(const Tap& tap, IOProc& ioProc);
  void stop(IOProc& ioProc);

  PulseConnection& connection;
  PulseCaptureGroup& group;
  PulseSupervisor& supervisor;
  AudioObjectID lastID = kAudioObjectSystemObject;
  std::map<AudioObjectID, std::string> outputDevices;
  std::map<AudioObjectID, Tap> taps;
  std::map<AudioObjectID, AggregateDevice> devices;
};

}  // namespace quenlor::platform::pulse
