#pragma once

#include "platform/AudioTypes.h"
#include "platform/DispatchQueue.h"
#include "platform/TapDescription.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace quenlor::platform {

/// A property's value. The alternative held before a get selects the type to read; a successful get
/// replaces it with a value of that type.
using PropertyData =
    std::variant<std::uint32_t, std::string, std::vector<std::string>, AudioStreamBasicDescription>;

/// Process taps, aggregate devices, their properties and their IO. If a device changes while it
/// runs, the host keeps delivering the format that it reported first.
///
/// All functions are called from the control thread. Each returns a status; out parameters are
/// written only on success.
class AudioHardware {
 public:
  /// Receives the samples of one IO cycle. Runs as synchronous work of the queue given at
  /// registration, on a thread of the host, or on the control thread during a call into the host.
  /// The list and its samples are valid during the call only. The buffer of a disabled stream may
  /// have a size but no data. The block must neither throw nor call this interface.
  using IOBlock = std::function<void(AudioBufferList input)>;

  virtual ~AudioHardware() = default;

  virtual OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tapID) = 0;
  virtual OSStatus destroyProcessTap(AudioObjectID tapID) = 0;

  virtual OSStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                         AudioObjectID& deviceID) = 0;
  virtual OSStatus destroyAggregateDevice(AudioObjectID deviceID) = 0;

  virtual OSStatus getPropertyData(AudioObjectID objectID,
                                   const AudioObjectPropertyAddress& address,
                                   PropertyData& data) = 0;
  virtual OSStatus setPropertyData(AudioObjectID objectID,
                                   const AudioObjectPropertyAddress& address,
                                   const PropertyData& data) = 0;

  /// Registers block on the device. The host keeps the queue and the block until
  /// destroyIOProcID().
  virtual OSStatus createIOProcID(AudioObjectID deviceID, std::shared_ptr<DispatchQueue> queue,
                                  IOBlock block, AudioDeviceIOProcID& ioProcID) = 0;
  virtual OSStatus destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) = 0;

  virtual OSStatus startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) = 0;

  /// The block is not called after this returns.
  virtual OSStatus stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) = 0;
};

}  // namespace quenlor::platform
