#include "recorder/LineReader.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace quenlor::recorder {

std::vector<std::string> LineReader::readLines() {
  std::array<char, 4096> bytes{};
  const ssize_t count = ::read(pipe.fileDescriptor(), bytes.data(), bytes.size());
  if (count < 0 && errno == EINTR) return {};
  std::vector<std::string> lines;
  if (count <= 0) {
    pipe = FileHandle();
    if (!unfinished.empty()) lines.push_back(std::exchange(unfinished, {}));
    return lines;
  }
  unfinished.append(bytes.data(), static_cast<std::size_t>(count));
  std::size_t start = 0;
  for (std::size_t end = 0; (end = unfinished.find('\n', start)) != std::string::npos;
       start = end + 1)
    lines.push_back(unfinished.substr(start, end - start));
  unfinished.erase(0, start);
  return lines;
}

}  // namespace quenlor::recorder
