#include "recorder/ProgramPath.h"

#include <cstdint>
#include <mach-o/dyld.h>
#include <string>
#include <system_error>

namespace quenlor::recorder {

std::filesystem::path programPath() {
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);  // Fails for want of room, and says how much it takes.
  std::string path(size, '\0');
  if (_NSGetExecutablePath(path.data(), &size) != 0) return {};
  std::error_code unknown;
  return std::filesystem::canonical(path.c_str(), unknown);
}

}  // namespace quenlor::recorder
