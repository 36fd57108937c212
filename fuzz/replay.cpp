#include "fuzz/FuzzTarget.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

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

/// Runs a target over the files of the folder that its only argument names.
int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
    return 64;
  }
  std::error_code error;
  int files = 0;
  // An iterator that fails becomes the end.
  for (std::filesystem::directory_iterator entry(arguments[1], error), end; entry != end;
       entry.increment(error)) {
    run(entry->path());
    ++files;
  }
  if (error) {
    std::fprintf(stderr, "The folder \"%s\" cannot be read: %s\n", arguments[1],
                 error.message().c_str());
    return 1;
  }
  std::printf("%d inputs\n", files);
  return files > 0 ? 0 : 1;
}
