#include "fuzz/Property.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

void run(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  quenlor::fuzz::require(!file.bad(), "the input can be read");
  // Told first, so that an input that ends the program is known.
  std::printf("%s\n", path.filename().c_str());
  std::fflush(stdout);
  quenlor::fuzz::LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                        bytes.size());
}

}  // namespace

/// Runs a target over the files and folders of files that the arguments name.
int main(int count, char** arguments) {
  int files = 0;
  for (int i = 1; i < count; ++i) {
    const std::filesystem::path path = arguments[i];
    if (!std::filesystem::is_directory(path)) {
      run(path);
      ++files;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      run(entry.path());
      ++files;
    }
  }
  std::printf("%d inputs\n", files);
  return files > 0 ? 0 : 1;
}
