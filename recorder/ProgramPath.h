#pragma once

#include <filesystem>

namespace quenlor::recorder {

/// The file of the running program, with symbolic links resolved. Empty where the system does not
/// say.
std::filesystem::path programPath();

}  // namespace quenlor::recorder
