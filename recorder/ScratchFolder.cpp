#include "recorder/ScratchFolder.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <unistd.h>

namespace quenlor::recorder {

ScratchFolder::ScratchFolder() {
  std::error_code code;
  std::string name = std::filesystem::temp_directory_path(code) / "quenlor-record-XXXXXX";
  if (code) throw std::system_error(code, "Finding the folder of temporary files failed");
  if (::mkdtemp(name.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(),
                            "Making the folder " + name + " failed");
  folder = name;
}

void ScratchFolder::remove() {
  std::error_code ignored;
  if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
  folder.clear();
}

}  // namespace quenlor::recorder
