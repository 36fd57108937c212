#pragma once

#include <cstdint>
#include <span>

namespace quenlor::platform {

/// Result of a hardware call: 0 is success, anything else names the failure.
using OSStatus = std::int32_t;

/// Identifies a hardware object (a device, a tap, the system itself); 0 means none.
using AudioObjectID = std::uint32_t;

/// Identifies one IO block registered on a device.
enum class AudioDeviceIOProcID : std::uintptr_t {};

/// A four-character code, most significant byte first: the form of selectors, scopes and statuses.
constexpr std::uint32_t fourCharCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

/// Addresses one property of a hardware object.
struct AudioObjectPropertyAddress {
  std::uint32_t mSelector;
  std::uint32_t mScope;
  std::uint32_t mElement;

  bool operator==(const AudioObjectPropertyAddress&) const = default;
};

inline constexpr OSStatus kAudioHardwareNoError = 0;
inline constexpr OSStatus kAudioHardwareBadObjectError =
    static_cast<OSStatus>(fourCharCode("!obj"));
inline constexpr OSStatus kAudioHardwareBadPropertySizeError =
    static_cast<OSStatus>(fourCharCode("!siz"));
inline constexpr OSStatus kAudioHardwareIllegalOperationError =
    static_cast<OSStatus>(fourCharCode("nope"));
inline constexpr OSStatus kAudioHardwareNotRunningError =
    static_cast<OSStatus>(fourCharCode("stop"));
inline constexpr OSStatus kAudioHardwareUnknownPropertyError =
    static_cast<OSStatus>(fourCharCode("who?"));
inline constexpr AudioObjectID kAudioObjectSystemObject = 1;
inline constexpr std::uint32_t kAudioObjectPropertyElementMain = 0;
inline constexpr std::uint32_t kAudioObjectPropertyScopeGlobal = fourCharCode("glob");
inline constexpr std::uint32_t kAudioObjectPropertyScopeInput = fourCharCode("inpt");
inline constexpr std::uint32_t kAudioHardwarePropertyDefaultOutputDevice = fourCharCode("dOut");
inline constexpr std::uint32_t kAudioDevicePropertyDeviceUID = fourCharCode("uid ");
inline constexpr std::uint32_t kAudioTapPropertyUID = fourCharCode("tuid");
inline constexpr std::uint32_t kAudioAggregateDevicePropertyTapList = fourCharCode("tap#");
inline constexpr std::uint32_t kAudioDevicePropertyStreamFormat = fourCharCode("sfmt");

inline constexpr std::uint32_t kAudioFormatLinearPCM = fourCharCode("lpcm");
inline constexpr std::uint32_t kAudioFormatFlagIsFloat = 1;
inline constexpr std::uint32_t kAudioFormatFlagIsBigEndian = 2;
inline constexpr std::uint32_t kAudioFormatFlagIsSignedInteger = 4;
inline constexpr std::uint32_t kAudioFormatFlagIsPacked = 8;
inline constexpr std::uint32_t kAudioFormatFlagIsNonInterleaved = 32;

/// Describes a stream of samples. In a non-interleaved stream mBytesPerFrame and mBytesPerPacket
/// count one channel only, since every channel has a buffer of its own.
struct AudioStreamBasicDescription {
  double mSampleRate;
  std::uint32_t mFormatID;
  std::uint32_t mFormatFlags;
  std::uint32_t mBytesPerPacket;
  std::uint32_t mFramesPerPacket;
  std::uint32_t mBytesPerFrame;
  std::uint32_t mChannelsPerFrame;
  std::uint32_t mBitsPerChannel;
  std::uint32_t mReserved;

  bool operator==(const AudioStreamBasicDescription&) const = default;
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

/// Sample bytes: all channels of an interleaved stream, or one channel of a non-interleaved one.
struct AudioBuffer {
  std::uint32_t mNumberChannels;
  std::uint32_t mDataByteSize;
  void* mData;
};

/// The buffers of one delivery. Valid as long as the function that takes the list says.
using AudioBufferList = std::span<const AudioBuffer>;

}  // namespace quenlor::platform
