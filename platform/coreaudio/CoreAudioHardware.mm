#include "platform/coreaudio/CoreAudioHardware.h"

#include "platform/coreaudio/CoreAudioProperties.h"
#include "platform/coreaudio/Formats.h"
#include "platform/coreaudio/SystemQueue.h"

#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>
#include <cstdint>
#include <utility>

namespace quenlor::platform::coreaudio {

namespace {

CATapDescription* systemDescription(const TapDescription& description) {
  NSMutableArray<NSNumber*>* const processes = [[NSMutableArray alloc] init];
  for (const AudioObjectID process : description.processes) [processes addObject:@(process)];
  CATapDescription* const tap =
      [[CATapDescription alloc] initStereoGlobalTapButExcludeProcesses:processes];
  [tap setName:systemString(description.name)];
  [tap setPrivate:description.isPrivate];
  // Where an empty list is not exclusive, macOS 15 and later are reported to record silence.
  [tap setExclusive:description.isExclusive || description.processes.empty()];
  if (description.deviceUID) [tap setDeviceUID:systemString(*description.deviceUID)];
  if (description.stream) [tap setStream:@(*description.stream)];
  return tap;
}

::AudioDeviceIOProcID systemID(AudioDeviceIOProcID ioProcID) {
  return reinterpret_cast<::AudioDeviceIOProcID>(static_cast<std::uintptr_t>(ioProcID));
}

}  // namespace

OSStatus CoreAudioHardware::createProcessTap(const TapDescription& description,
                                             AudioObjectID& tapID) {
  AudioObjectID created = 0;
  const OSStatus status = AudioHardwareCreateProcessTap(systemDescription(description), &created);
  if (status == kAudioHardwareNoError) tapID = created;
  return status;
}

OSStatus CoreAudioHardware::destroyProcessTap(AudioObjectID tapID) {
  return AudioHardwareDestroyProcessTap(tapID);
}

OSStatus CoreAudioHardware::createAggregateDevice(const AggregateDeviceDescription& description,
                                                  AudioObjectID& deviceID) {
  NS_VALID_UNTIL_END_OF_SCOPE NSDictionary* const settings = @{
    @"name" : systemString(description.name),
    @"uid" : systemString(description.uid),
    @"private" : @(description.isPrivate),
    @"tapautostart" : @(description.tapAutoStart),
  };
  AudioObjectID created = 0;
  const OSStatus status =
      AudioHardwareCreateAggregateDevice((__bridge CFDictionaryRef)settings, &created);
  if (status == kAudioHardwareNoError) deviceID = created;
  return status;
}

OSStatus CoreAudioHardware::destroyAggregateDevice(AudioObjectID deviceID) {
  return AudioHardwareDestroyAggregateDevice(deviceID);
}

OSStatus CoreAudioHardware::getPropertyData(AudioObjectID objectID,
                                            const AudioObjectPropertyAddress& address,
                                            PropertyData& data) {
  return readProperty(objectID, address, data);
}

OSStatus CoreAudioHardware::setPropertyData(AudioObjectID objectID,
                                            const AudioObjectPropertyAddress& address,
                                            const PropertyData& data) {
  return writeProperty(objectID, address, data);
}

OSStatus CoreAudioHardware::createIOProcID(AudioObjectID deviceID,
                                           std::shared_ptr<DispatchQueue> queue, IOBlock block,
                                           AudioDeviceIOProcID& ioProcID) {
  const auto gate = std::make_shared<Gate<IOBlock>>(std::move(block));
  ::AudioDeviceIOProcID created = nullptr;
  const OSStatus status = AudioDeviceCreateIOProcIDWithBlock(
      &created, deviceID, systemQueue(*queue),
      ^(const AudioTimeStamp*, const ::AudioBufferList* input, const AudioTimeStamp*,
        ::AudioBufferList*, const AudioTimeStamp*) {
        gate->call(hostBuffers(*input));
      });
  if (status != kAudioHardwareNoError) return status;
  ioProcID = AudioDeviceIOProcID{reinterpret_cast<std::uintptr_t>(created)};
  gates[ioProcID] = gate;
  return status;
}

OSStatus CoreAudioHardware::destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  gates.erase(ioProcID);
  return AudioDeviceDestroyIOProcID(deviceID, systemID(ioProcID));
}

OSStatus CoreAudioHardware::startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  if (const auto gate = gates.find(ioProcID); gate != gates.end()) gate->second->open();
  return AudioDeviceStart(deviceID, systemID(ioProcID));
}

// AudioDeviceStop promises nothing about a cycle that has begun: its thread may be about to hand
// the block to the queue, or be waiting for it. The gate waits for a block that runs; a cycle that
// comes after it, even where the system would not stop, finds the gate closed.
OSStatus CoreAudioHardware::stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) {
  const OSStatus status = AudioDeviceStop(deviceID, systemID(ioProcID));
  if (const auto gate = gates.find(ioProcID); gate != gates.end()) gate->second->close();
  return status;
}

}  // namespace quenlor::platform::coreaudio
