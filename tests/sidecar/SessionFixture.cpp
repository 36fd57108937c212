#include "SessionFixture.h"

#include "LocalizedError.h"

#include <algorithm>

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

std::shared_ptr<platform::PCMBuffer> SessionFixture::planarBuffer(const std::vector<float>& samples,
                                                                  std::uint32_t channels) {
  const auto frames = static_cast<std::uint32_t>(samples.size());
  auto buffer =
      platform::PCMBuffer::create(platform::AudioFormat::float32(48'000, channels, false), frames);
  buffer->setFrameLength(frames);
  for (float* channel : buffer->floatChannelData()) std::ranges::copy(samples, channel);
  return buffer;
}

void SessionFixture::makeSession(const VirtualSettings& settings, const std::string& mode) {
  session.reset();  // before the platform it lives on
  platform = std::make_unique<VirtualPlatform>(clock, settings);
  session =
      std::make_shared<AudioTapSession>(StartRequest{mode, path.string(), "A title"}, *platform);
}

void SessionFixture::deliverSystem(const std::vector<float>& samples) {
  platform->deliverSystem(planarBuffer(samples)->audioBufferList());
}

void SessionFixture::deliverMicrophone(const std::vector<float>& samples) {
  platform->deliverMicrophone(planarBuffer(samples));
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
