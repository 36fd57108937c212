#include "fuzz/FuzzTarget.h"

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

/// Runs a target over the files of the folder that the argument names.
int main(int /*count*/, char** arguments) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
    run(entry.path());
    ++files;
  }
  std::printf("%d inputs\n", files);
  return files > 0 ? 0 : 1;
}
