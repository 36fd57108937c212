#pragma once

#include <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

using AudioObjectID = UInt32;

struct AudioObjectPropertyAddress {
  UInt32 mSelector;
  UInt32 mScope;
  UInt32 mElement;
};

struct AudioStreamBasicDescription {
  Float64 mSampleRate;
  UInt32 mFormatID;
  UInt32 mFormatFlags;
  UInt32 mBytesPerPacket;
  UInt32 mFramesPerPacket;
  UInt32 mBytesPerFrame;
  UInt32 mChannelsPerFrame;
  UInt32 mBitsPerChannel;
  UInt32 mReserved;
};

struct AudioBuffer {
  UInt32 mNumberChannels;
  UInt32 mDataByteSize;
  void* mData;
};

struct AudioBufferList {
  UInt32 mNumberBuffers;
  AudioBuffer mBuffers[1];
};

using AudioChannelLayoutTag = UInt32;
enum : AudioChannelLayoutTag { kAudioChannelLayoutTag_DiscreteInOrder = 147U << 16 };

struct AudioTimeStamp;

using AudioDeviceIOProcID = OSStatus (*)(AudioObjectID device, void* clientData);
using AudioDeviceIOBlock = void (^)(const AudioTimeStamp* now, const AudioBufferList* input,
                                    const AudioTimeStamp* inputTime, AudioBufferList* output,
                                    const AudioTimeStamp* outputTime);

extern "C" {
OSStatus AudioHardwareCreateAggregateDevice(CFDictionaryRef description,
                                            AudioObjectID* outDeviceID);
OSStatus AudioHardwareDestroyAggregateDevice(AudioObjectID deviceID);

OSStatus AudioObjectGetPropertyData(AudioObjectID objectID,
                                    const AudioObjectPropertyAddress* address, UInt32 qualifierSize,
                                    const void* qualifier, UInt32* ioSize, void* data);
OSStatus AudioObjectSetPropertyData(AudioObjectID objectID,
                                    const AudioObjectPropertyAddress* address, UInt32 qualifierSize,
                                    const void* qualifier, UInt32 size, const void* data);

OSStatus AudioDeviceCreateIOProcIDWithBlock(AudioDeviceIOProcID* outID, AudioObjectID device,
                                            dispatch_queue_t queue, AudioDeviceIOBlock block);
OSStatus AudioDeviceDestroyIOProcID(AudioObjectID device, AudioDeviceIOProcID ioProcID);
OSStatus AudioDeviceStart(AudioObjectID device, AudioDeviceIOProcID ioProcID);
OSStatus AudioDeviceStop(AudioObjectID device, AudioDeviceIOProcID ioProcID);
}
