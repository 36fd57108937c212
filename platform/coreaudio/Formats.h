#pragma once

#include "platform/AudioFormat.h"
#include "platform/PCMBuffer.h"

#import <AVFAudio/AVFAudio.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The seam's values and the system's, one made from the other. All of it may be called on any
// thread.
namespace quenlor::platform::coreaudio {

/// Nil where the system cannot represent the format, as with 0 channels.
AVAudioFormat* systemFormat(const AudioFormat& format);

/// nullopt for a format without channels, as of a missing input.
std::optional<AudioFormat> hostFormat(AVAudioFormat* format);

/// The list's entries; their samples stay where they are.
std::vector<AudioBuffer> hostBuffers(const ::AudioBufferList& list);

/// A copy. Nil where the system cannot hold the buffer's format.
AVAudioPCMBuffer* systemBuffer(const PCMBuffer& buffer);

/// A copy; nullptr if it cannot be allocated.
std::shared_ptr<PCMBuffer> hostBuffer(AVAudioPCMBuffer* buffer);

/// Replaces the frames of one buffer by those of another, which has the same format and fits.
void copyFrames(AVAudioPCMBuffer* from, PCMBuffer& to);

/// Nil where text is not UTF-8.
NSString* systemString(const std::string& text);

/// Empty for nil.
std::string hostString(NSString* text);

}  // namespace quenlor::platform::coreaudio
