#pragma once

#include <filesystem>

namespace quenlor::platform {

/// The user's folder for temporary files; empty where the system names none. Comes with the host
/// that this program was linked with, and may be called before there is one.
std::filesystem::path temporaryFolder();

}  // namespace quenlor::platform
