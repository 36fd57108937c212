#pragma once

#include "platform/AudioHardware.h"

// Reads and writes of single properties, without qualifiers.
namespace quenlor::platform::coreaudio {

/// Reads the property into data, as the type that data holds before.
OSStatus readProperty(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                      PropertyData& data);

OSStatus writeProperty(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                       const PropertyData& data);

}  // namespace quenlor::platform::coreaudio
