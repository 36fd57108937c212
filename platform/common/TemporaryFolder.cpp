#include "platform/TemporaryFolder.h"

#include <system_error>

namespace quenlor::platform {

std::filesystem::path temporaryFolder() {
  std::error_code failure;
  return std::filesystem::temp_directory_path(failure);
}

}  // namespace quenlor::platform
