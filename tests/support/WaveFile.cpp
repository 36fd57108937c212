#include "tests/support/WaveFile.h"

#include "WaveWriter.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

namespace quenlor::test {

std::vector<float> WaveFile::leftAlone() const {
  std::vector<float> rest(left.size());
  std::ranges::transform(left, right, rest.begin(), std::minus());
  return rest;
}

WaveFile readWaveFile(const std::filesystem::path& path) {
  const std::string bytes = readFile(path);
  if (bytes.size() < WaveWriter::headerSize || bytes.size() % WaveWriter::bytesPerFrame != 0)
    throw std::runtime_error(path.string() + " is not a header and whole frames");
  const std::size_t sampleBytes = bytes.size() - WaveWriter::headerSize;
  const WaveWriter::Header header = WaveWriter::makeHeader(sampleBytes, 48'000, 2, 16);
  if (std::memcmp(bytes.data(), header.data(), header.size()) != 0)
    throw std::runtime_error(path.string() + " has another header than its samples ask for");

  WaveFile wave;
  wave.samples.resize(sampleBytes / sizeof(std::int16_t));
  std::copy_n(bytes.data() + header.size(), sampleBytes,
              reinterpret_cast<char*>(wave.samples.data()));
  for (std::size_t i = 0; i < wave.samples.size(); i += 2) {
    wave.left.push_back(static_cast<float>(wave.samples[i]) / 32767.0F);
    wave.right.push_back(static_cast<float>(wave.samples[i + 1]) / 32767.0F);
  }
  return wave;
}

}  // namespace quenlor::test
