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

/// A property's data. The alternative held before a get says which kind of data is asked for; a get
/// that succeeds puts data of the same kind in its place.
using PropertyData =
    std::variant<std::uint32_t, std::string, std::vector<std::string>, AudioStreamBasicDescription>;

/// Process taps, aggregate devices, their properties and their IO. Where a device changes while it
/// runs, a host goes on in the format that it announced.
///
/// All functions are called from the control thread. Each returns a status; out parameters are
/// written only on success.
class AudioHardware {
 public:
  /// Takes the samples of one IO cycle. Runs as synchronous work of the queue given at
  /// registration, on a thread of the host's, or on the control thread while it is inside a call of
  /// this host. The list and what it points to are lent for the call. A buffer may have a size but
  /// no data where its stream is disabled. The block must neither throw nor call this interface.
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

  /// Once this has returned, the block is not called any more.
  virtual OSStatus stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) = 0;
};

}  // namespace quenlor::platform
