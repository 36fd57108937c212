#include "platform/coreaudio/CoreAudioProperties.h"

#include "platform/coreaudio/Formats.h"

#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>
#include <bit>

namespace quenlor::platform::coreaudio {

namespace {

/// One property of one object.
class Property {
 public:
  Property(AudioObjectID object, const AudioObjectPropertyAddress& seamAddress)
      : objectID(object), address(std::bit_cast<::AudioObjectPropertyAddress>(seamAddress)) {}

  OSStatus read(std::uint32_t& value) const { return readBytes(value); }
  OSStatus read(AudioStreamBasicDescription& value) const { return readBytes(value); }
  OSStatus read(std::string& value) const;
  OSStatus read(std::vector<std::string>& value) const;

  OSStatus write(std::uint32_t value) const { return writeBytes(value); }
  OSStatus write(const AudioStreamBasicDescription& value) const { return writeBytes(value); }
  OSStatus write(const std::string& value) const;
  OSStatus write(const std::vector<std::string>& value) const;

 private:
  /// For a reference, the size of the reference itself.
  template <typename Value>
  static constexpr UInt32 byteSize = sizeof(Value);  // NOLINT(bugprone-sizeof-expression)

  /// The value's own bytes. A Core Foundation reference that is read becomes the caller's.
  template <typename Value>
  OSStatus readBytes(Value& value) const {
    Value answer = value;
    UInt32 size = byteSize<Value>;
    const OSStatus status =
        AudioObjectGetPropertyData(objectID, &address, 0, nullptr, &size, &answer);
    if (status == kAudioHardwareNoError) value = answer;
    return status;
  }

  template <typename Value>
  OSStatus writeBytes(const Value& value) const {
    return AudioObjectSetPropertyData(objectID, &address, 0, nullptr, byteSize<Value>, &value);
  }

  const AudioObjectID objectID;
  const ::AudioObjectPropertyAddress address;
};

OSStatus Property::read(std::string& value) const {
  CFStringRef reference = nullptr;
  const OSStatus status = readBytes(reference);
  NSString* const text = (__bridge_transfer NSString*)reference;
  if (status == kAudioHardwareNoError) value = hostString(text);
  return status;
}

OSStatus Property::read(std::vector<std::string>& value) const {
  CFArrayRef reference = nullptr;
  const OSStatus status = readBytes(reference);
  NSArray<NSString*>* const texts = (__bridge_transfer NSArray<NSString*>*)reference;
  if (status != kAudioHardwareNoError) return status;
  value.clear();
  for (NSString* text in texts) value.push_back(hostString(text));
  return status;
}

// To ARC the cast is the object's last use; it has to outlive the write all the same.

OSStatus Property::write(const std::string& value) const {
  NS_VALID_UNTIL_END_OF_SCOPE NSString* const text = systemString(value);
  return writeBytes((__bridge CFStringRef)text);
}

OSStatus Property::write(const std::vector<std::string>& value) const {
  NS_VALID_UNTIL_END_OF_SCOPE NSMutableArray<NSString*>* const texts =
      [[NSMutableArray alloc] init];
  for (const std::string& text : value) [texts addObject:systemString(text)];
  return writeBytes((__bridge CFArrayRef)texts);
}

}  // namespace

OSStatus readProperty(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                      PropertyData& data) {
  const Property property(objectID, address);
  return std::visit([&](auto& value) { return property.read(value); }, data);
}

OSStatus writeProperty(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                       const PropertyData& data) {
  const Property property(objectID, address);
  return std::visit([&](const auto& value) { return property.write(value); }, data);
}

}  // namespace quenlor::platform::coreaudio
