#include "SessionFixture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioFormat;
using platform::ConverterInputStatus;
using platform::ConverterOutputStatus;
using platform::PCMBuffer;

/// Notes what conversions are asked, and has them give 7 frames and answer as a test says.
class SessionConversion : public SessionFixture {
 protected:
  void startWithMicrophone(std::uint32_t rate, std::uint32_t channels,
                           const std::optional<CallLedger::Repeat>& refused = std::nullopt) {
    VirtualSettings settings = exactDevices();
    settings.microphone->sampleRate = rate;
    settings.microphone->channelCount = channels;
    makePlatform(settings);
    if (refused) ledger().failNamed("makeConverter", 1, *refused);
    host = std::make_unique<ConvertingPlatform>(*platform);
    capacities.clear();
    inputs.clear();
    host->convert = [this](PCMBuffer& output, std::exception_ptr& error, const auto& input) {
      capacities.push_back(output.frameCapacity());
      for (int call = 0; call < 3; ++call) {
        ConverterInputStatus status = ConverterInputStatus::noDataNow;
        const auto buffer = input(1, status);
        inputs.emplace_back(buffer, status);
      }
      output.setFrameLength(7);
      error = failure;
      return answer;
    };
    makeSessionOn(*host);
    session->start();
  }

  std::shared_ptr<PCMBuffer> deliver(double rate, std::uint32_t channels, std::uint32_t frames) {
    auto buffer = PCMBuffer::create(AudioFormat::float32(rate, channels, false), frames + 1);
    buffer->setFrameLength(frames);
    for (float* channel : buffer->floatChannelData()) std::fill_n(channel, frames, 0.5F);
    platform->deliverMicrophone(buffer);
    clock->runPending();
    return buffer;
  }

  void TearDown() override { session.reset(); }

  std::unique_ptr<ConvertingPlatform> host;
  ConverterOutputStatus answer = ConverterOutputStatus::haveData;
  std::exception_ptr failure;
  std::vector<std::uint32_t> capacities;
  std::vector<std::pair<std::shared_ptr<PCMBuffer>, ConverterInputStatus>> inputs;
};

TEST_F(SessionConversion, RoundsTheCapacityUpAndHandsTheBufferOverOnce) {
  const struct {
    std::uint32_t rate, channels, frames, capacity;
  } cases[] = {{96'000, 2, 1024, 512}, {16'000, 1, 160, 480},   {44'100, 2, 1024, 1115},
               {44'100, 2, 441, 481},  {48'000, 1, 1024, 1024}, {44'100, 2, 0, 1}};
  for (const auto& [rate, channels, frames, capacity] : cases) {
    startWithMicrophone(rate, channels);
    const auto buffer = deliver(rate, channels, frames);
    EXPECT_EQ(capacities, std::vector{capacity}) << frames;
    const std::pair end{std::shared_ptr<PCMBuffer>(), ConverterInputStatus::endOfStream};
    EXPECT_EQ(inputs, (std::vector{std::pair{buffer, ConverterInputStatus::haveData}, end, end}));
  }
}

TEST_F(SessionConversion, PassesTheTargetFormatThroughUntouched) {
  startWithMicrophone(48'000, 2);
  deliver(48'000, 2, 0);
  deliver(48'000, 2, 100);
  EXPECT_EQ(session->stop().sizeBytes, 444U);
  EXPECT_TRUE(capacities.empty());
  EXPECT_EQ(ledger().count("makeConverter"), 1U)
      << "the microphone's converter is made early, needed or not";
  EXPECT_EQ(ledger().count("makeBuffer"), 0U) << "the very buffer is stored";
}

TEST_F(SessionConversion, ActsOnTheStatus) {
  const std::string format = "Audio format error: AVAudioConverter returned an ";
  const struct {
    int status;
    bool error;
    std::string description;
  } cases[] = {{0, false, ""},
               {1, false, ""},
               {2, false, ""},
               {3, false, format + "error while converting audio."},
               {4, false, format + "unknown status."},
               {-1, false, format + "unknown status."},
               {0, true, "the converter's own"},
               {3, true, "the converter's own"}};
  for (const auto& [status, error, description] : cases) {
    startWithMicrophone(16'000, 1);
    answer = static_cast<ConverterOutputStatus>(status);
    if (error) failure = std::make_exception_ptr(platform::PlatformError(description));
    deliver(16'000, 1, 160);
    deliver(16'000, 1, 160);
    StopResult result{};
    EXPECT_EQ(errorOf([&] { result = session->stop(); }), description) << status;
    const bool succeeds = description.empty();
    EXPECT_EQ(result.sizeBytes, succeeds ? 44U + 4 * 14 : 0U) << status;
    EXPECT_EQ(capacities.size(), succeeds ? 2U : 1U) << "no buffer is converted after a failure";
  }
}

TEST_F(SessionConversion, KeepsTheConverterThatItGotWhateverFormatComesNext) {
  for (const bool refused : {false, true}) {  // the early one
    startWithMicrophone(16'000, 1,
                        refused ? std::optional(CallLedger::Repeat::once) : std::nullopt);
    deliver(16'000, 1, 160);
    deliver(44'100, 2, 441);
    EXPECT_EQ(ledger().count("makeConverter"), refused ? 2U : 1U);
    EXPECT_EQ(capacities, (std::vector<std::uint32_t>{480, 481}));
    EXPECT_EQ(errorOf([&] { session->stop(); }), "");
  }
  startWithMicrophone(16'000, 1, CallLedger::Repeat::forGood);
  deliver(16'000, 1, 160);
  EXPECT_EQ(errorOf([&] { session->stop(); }),
            "Audio format error: Unable to create an AVAudioConverter.");
}

TEST_F(SessionConversion, RefusesCapacitiesThatAreNoCount) {
  for (const auto& [rate, frames] :
       {std::pair{1e-6, 1U}, {0.0, 1U}, {0.0, 0U}, {-48'000.0, 1U}, {double{NAN}, 1U}}) {
    startWithMicrophone(16'000, 1);
    deliver(rate, 1, frames);
    EXPECT_EQ(errorOf([&] { session->stop(); }),
              "Audio format error: Unable to allocate the converted PCM buffer.")
        << rate << " " << frames;
    EXPECT_TRUE(capacities.empty());
  }
}

}  // namespace
}  // namespace quenlor::test
