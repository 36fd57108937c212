#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quenlor::test {

/// A new, empty folder that goes away with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return folder; }
  [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const {
    return folder / name;
  }

 private:
  std::filesystem::path folder;
};

[[nodiscard]] std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace quenlor::test
