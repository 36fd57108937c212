#pragma once

#include <filesystem>

namespace quenlor::platform {

/// The user's folder for temporary files; empty if there is none. Defined by the host that the
/// program is linked with. May be called before makeAudioPlatform().
std::filesystem::path temporaryFolder();

}  // namespace quenlor::platform
