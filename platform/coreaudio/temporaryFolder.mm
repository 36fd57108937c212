#include "platform/TemporaryFolder.h"

#include "platform/coreaudio/Formats.h"

#import <Foundation/Foundation.h>

namespace quenlor::platform {

std::filesystem::path temporaryFolder() {
  @autoreleasepool {
    return coreaudio::hostString(NSTemporaryDirectory());
  }
}

}  // namespace quenlor::platform
