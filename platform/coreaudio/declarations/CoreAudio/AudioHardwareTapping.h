#pragma once

#include <CoreAudio/CATapDescription.h>
#include <CoreAudio/CoreAudio.h>

extern "C" {
OSStatus AudioHardwareCreateProcessTap(CATapDescription* description, AudioObjectID* outTapID);
OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tapID);
}
