// quenlor-wav-repair FILE: completes a recording whose recorder was killed. The samples are all
// there then, but the sizes in the header are those of an empty file.

#include "FileHandle.h"
#include "WaveWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quenlor {

namespace {

constexpr const char* usage =
    "Usage: quenlor-wav-repair FILE\n"
    "Rewrites the sizes in the header of a recording from the length of the file.\n"
    "\n"
    "  -h, --help     prints this\n"
    "  -V, --version  prints the version\n";

/// A path, fit for a message of one line.
std::string onOneLine(std::string text) {
  std::ranges::replace_if(
      text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return text;
}

[[noreturn]] void throwErrno() {
  throw std::system_error(errno, std::generic_category());
}

struct Recording {
  FileHandle file;
  std::uint64_t length;
};

/// Whatever is not a regular file is turned away before it is opened: opening some devices sets
/// something off. It is looked at again once open, when it can no longer be exchanged.
Recording openRecording(const char* path) {
  struct stat status {};
  const auto requireRegular = [&status] {
    if (!S_ISREG(status.st_mode)) throw std::runtime_error("Not a regular file");
  };
  if (::stat(path, &status) != 0) throwErrno();
  requireRegular();
  FileHandle file(::open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen() || ::fstat(file.fileDescriptor(), &status) != 0) throwErrno();
  requireRegular();
  return {std::move(file), static_cast<std::uint64_t>(status.st_size)};
}

/// The first bytes of the file, or nothing where it is shorter than a header.
std::optional<WaveWriter::Header> readHeader(const FileHandle& file) {
  WaveWriter::Header header;
  std::size_t done = 0;
  while (done < header.size()) {
    const ssize_t count = ::pread(file.fileDescriptor(), &header.at(done), header.size() - done,
                                  static_cast<off_t>(done));
    if (count == 0) return std::nullopt;
    if (count > 0)
      done += static_cast<std::size_t>(count);
    else if (errno != EINTR)
      throwErrno();
  }
  return header;
}

/// Whether two headers differ in nothing but the sizes at bytes 4 and 40.
bool sameFormat(WaveWriter::Header one, WaveWriter::Header other) {
  constexpr std::size_t sizeWidth = 4;
  for (const std::size_t offset : {std::size_t{4}, std::size_t{40}}) {
    std::fill_n(&one.at(offset), sizeWidth, std::byte{});
    std::fill_n(&other.at(offset), sizeWidth, std::byte{});
  }
  return one == other;
}

/// Gives the line that tells what was done. Throws, having changed nothing, where the file is no
/// recording of this project's.
std::string repair(const char* path) {
  Recording recording = openRecording(path);
  const std::optional<WaveWriter::Header> found = readHeader(recording.file);
  if (!found || recording.length < WaveWriter::headerSize)
    throw std::runtime_error("Too short for a recording");

  const std::uint64_t dataByteCount = recording.length - WaveWriter::headerSize;
  const std::uint64_t frames = dataByteCount / WaveWriter::bytesPerFrame;
  const std::uint64_t rest = dataByteCount % WaveWriter::bytesPerFrame;
  const WaveWriter::Header right =
      WaveWriter::makeHeader(dataByteCount - rest, WaveWriter::targetSampleRate,
                             WaveWriter::targetChannelCount, WaveWriter::storedBitsPerSample);
  if (!sameFormat(*found, right))
    throw std::runtime_error("Not a 16-bit stereo recording at 48 kHz with a 44-byte header");

  std::string told = "the sizes are right already";
  if (*found != right) {
    recording.file.seekToStart();
    recording.file.write(right);
    recording.file.close();
    told = "the sizes were set";
  }
  told += ": " + std::to_string(frames) + " frames";
  if (rest != 0) told += ", and a part of one that is not counted";
  return told;
}

}  // namespace

}  // namespace quenlor

int main(int argumentCount, char** arguments) {
  const std::span<char*> all(arguments, static_cast<std::size_t>(argumentCount));
  const std::string_view argument = all.size() == 2 ? all[1] : "";
  if (argument == "--help" || argument == "-h") {
    std::cout << quenlor::usage;
    return 0;
  }
  if (argument == "--version" || argument == "-V") {
    std::cout << "quenlor-wav-repair " QUENLOR_VERSION "\n";
    return 0;
  }
  if (all.size() != 2 || argument.starts_with("--")) {
    std::cerr << quenlor::usage;
    return 2;
  }
  const std::string name = quenlor::onOneLine(all[1]);
  try {
    const std::string told = quenlor::repair(all[1]);
    std::cout << name << ": " << told << '\n';
    return 0;
  } catch (const std::system_error& error) {
    std::cerr << name << ": " << error.code().message() << '\n';
  } catch (const std::exception& error) {
    std::cerr << name << ": " << error.what() << '\n';
  }
  return 1;
}
