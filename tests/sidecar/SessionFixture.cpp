#include "SessionFixture.h"

#include "LocalizedError.h"

#include <algorithm>
#include <cstdint>
#include <exception>

namespace quenlor::test {

VirtualSettings SessionFixture::exactDevices() {
  VirtualSettings settings;
  settings.output = DeviceSettings{.sampleRate = 48'000,
                                   .channelCount = 2,
                                   .interleaved = false,
                                   .toneFrequency = 440,
                                   .signal = Signal::nothing};
  settings.microphone = settings.output;
  return settings;
}

std::shared_ptr<platform::PCMBuffer> SessionFixture::stereoBuffer(const std::vector<float>& left,
                                                                  const std::vector<float>& right) {
  const auto frames = static_cast<std::uint32_t>(left.size());
  auto buffer =
      platform::PCMBuffer::create(platform::AudioFormat::float32(48'000, 2, false), frames);
  buffer->setFrameLength(frames);
  std::ranges::copy(left, buffer->floatChannelData()[0]);
  std::ranges::copy(right, buffer->floatChannelData()[1]);
  return buffer;
}

void SessionFixture::makePlatform(const VirtualSettings& settings,
                                  const std::shared_ptr<platform::virtualhost::Pace>& pace) {
  session.reset();  // before the platform it lives on
  platform = std::make_unique<VirtualPlatform>(pace ? pace : clock, settings);
}

void SessionFixture::makeSessionOn(platform::AudioPlatform& host, const std::string& mode) {
  session = std::make_shared<AudioTapSession>(StartRequest{mode, path.string(), "A title"}, host);
}

void SessionFixture::makeSession(const VirtualSettings& settings, const std::string& mode) {
  makePlatform(settings);
  makeSessionOn(*platform, mode);
}

void SessionFixture::deliverSystem(const std::vector<float>& left,
                                   const std::vector<float>& right) {
  platform->deliverSystem(stereoBuffer(left, right)->audioBufferList());
}

void SessionFixture::deliverMicrophone(const std::vector<float>& left,
                                       const std::vector<float>& right) {
  platform->deliverMicrophone(stereoBuffer(left, right));
}

std::filesystem::path SessionFixture::linkToRecording() const {
  std::filesystem::path link = folder / "link.wav";
  std::filesystem::remove(link);
  std::filesystem::create_hard_link(path, link);
  return link;
}

void SessionFixture::expectEverythingReleased() {
  session.reset();
  clock->runPending();
  EXPECT_EQ(ledger().aliveInAll(), 0U);
  EXPECT_EQ(ledger().misuses(), std::vector<std::string>());
}

std::string errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const LocalizedError& error) {
    return error.errorDescription();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

}  // namespace quenlor::test
