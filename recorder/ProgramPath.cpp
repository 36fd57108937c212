#include "recorder/ProgramPath.h"

#include <system_error>

namespace quenlor::recorder {

std::filesystem::path programPath() {
  std::error_code unknown;
  return std::filesystem::read_symlink("/proc/self/exe", unknown);
}

}  // namespace quenlor::recorder
