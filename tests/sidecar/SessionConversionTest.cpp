#include "SessionFixture.h"
#include "platform/ForwardingPlatform.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

using platform::AudioConverter;
using platform::AudioFormat;
using platform::ConverterInputStatus;
using platform::ConverterOutputStatus;
using platform::PCMBuffer;

/// What a conversion was asked, and what it shall answer.
struct Script {
  ConverterOutputStatus status = ConverterOutputStatus::haveData;
  std::exception_ptr error;
  std::uint32_t outputFrames = 0;

  std::vector<std::uint32_t> capacities;
  std::vector<std::string> inputs;
};

class ScriptedConverter final : public AudioConverter {
 public:
  explicit ScriptedConverter(Script& givenScript) : script(givenScript) {}
  ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                const InputBlock& input) override {
    script.capacities.push_back(output.frameCapacity());
    for (int call = 0; call < 3; ++call) {
      ConverterInputStatus status = ConverterInputStatus::noDataNow;
      const auto buffer = input(1, status);
      script.inputs.push_back((buffer ? std::to_string(buffer->frameLength()) : "none") +
                              (status == ConverterInputStatus::haveData      ? " haveData"
                               : status == ConverterInputStatus::endOfStream ? " endOfStream"
                                                                             : " noDataNow"));
    }
    output.setFrameLength(script.outputFrames);
    error = script.error;
    return script.status;
  }

 private:
  Script& script;
};

/// Gives scripted converters, or none, and counts the requests.
class ScriptedPlatform final : public platform::ForwardingPlatform {
 public:
  ScriptedPlatform(AudioPlatform& realPlatform, Script& givenScript)
      : ForwardingPlatform(realPlatform), script(givenScript) {}
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& /*from*/,
                                                const AudioFormat& /*to*/) override {
    ++requests;
    return requests <= refusals ? nullptr : std::make_shared<ScriptedConverter>(script);
  }
  std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format, std::uint32_t frames) override {
    ++buffers;
    return ForwardingPlatform::makeBuffer(format, frames);
  }
  int requests = 0;
  int refusals = 0;
  int buffers = 0;

 private:
  Script& script;
};

class SessionConversion : public SessionFixture {
 protected:
  /// Starts a session whose microphone has the given format and delivers by hand.
  void startWithMicrophone(std::uint32_t rate, std::uint32_t channels) {
    VirtualSettings settings = exactDevices();
    settings.microphone->sampleRate = rate;
    settings.microphone->channelCount = channels;
    makePlatform(settings);
    scripted = std::make_unique<ScriptedPlatform>(*platform, script);
    scripted->refusals = refusals;
    makeSessionOn(*scripted);
    session->start();
  }

  void deliver(double rate, std::uint32_t channels, std::uint32_t frames) {
    auto buffer = PCMBuffer::create(AudioFormat::float32(rate, channels, false), frames + 1);
    buffer->setFrameLength(frames);
    for (float* channel : buffer->floatChannelData()) std::fill_n(channel, frames, 0.5F);
    platform->deliverMicrophone(buffer);
    clock->runPending();
  }

  void TearDown() override { session.reset(); }

  Script script;
  std::unique_ptr<ScriptedPlatform> scripted;
  int refusals = 0;
};

TEST_F(SessionConversion, RoundsTheCapacityUp) {
  struct Case {
    std::uint32_t rate;
    std::uint32_t channels;
    std::uint32_t frames;
    std::uint32_t capacity;
  };
  for (const Case& one :
       {Case{96'000, 2, 1024, 512}, Case{16'000, 1, 160, 480}, Case{44'100, 2, 1024, 1115},
        Case{44'100, 2, 441, 481}, Case{48'000, 1, 1024, 1024}, Case{44'100, 2, 0, 1}}) {
    script = Script();
    startWithMicrophone(one.rate, one.channels);
    deliver(one.rate, one.channels, one.frames);
    session->stop();
    EXPECT_EQ(script.capacities, std::vector<std::uint32_t>{one.capacity}) << one.frames;
    const std::string first = std::to_string(one.frames) + " haveData";
    EXPECT_EQ(script.inputs,
              (std::vector<std::string>{first, "none endOfStream", "none endOfStream"}));
  }
}

TEST_F(SessionConversion, PassesTheTargetFormatThroughUntouched) {
  startWithMicrophone(48'000, 2);
  deliver(48'000, 2, 0);
  deliver(48'000, 2, 100);
  EXPECT_EQ(session->stop().sizeBytes, 444U);
  EXPECT_TRUE(script.capacities.empty());
  EXPECT_EQ(scripted->requests, 1) << "the microphone's converter is made early, needed or not";
  EXPECT_EQ(scripted->buffers, 0) << "the very buffer is stored";
}

TEST_F(SessionConversion, ActsOnTheStatus) {
  struct Case {
    std::int32_t status;
    bool error;
    std::string description;
  };
  const std::vector<Case> cases = {
      {0, false, ""},
      {1, false, ""},
      {2, false, ""},
      {3, false, "Audio format error: AVAudioConverter returned an error while converting audio."},
      {4, false, "Audio format error: AVAudioConverter returned an unknown status."},
      {-1, false, "Audio format error: AVAudioConverter returned an unknown status."},
      {0, true, "the converter's own"},
      {3, true, "the converter's own"}};
  for (const Case& one : cases) {
    script = Script();
    script.status = static_cast<ConverterOutputStatus>(one.status);
    script.outputFrames = 7;
    if (one.error)
      script.error = std::make_exception_ptr(platform::PlatformError("the converter's own"));
    startWithMicrophone(16'000, 1);
    deliver(16'000, 1, 160);
    deliver(16'000, 1, 160);
    std::optional<std::uint64_t> size;
    EXPECT_EQ(errorOf([&] { size = session->stop().sizeBytes; }), one.description) << one.status;
    const bool succeeds = one.description.empty();
    EXPECT_EQ(size, succeeds ? std::optional<std::uint64_t>(44 + 4 * 14) : std::nullopt);
    EXPECT_EQ(script.capacities.size(), succeeds ? 2U : 1U)
        << "no buffer is converted after a failure";
  }
}

TEST_F(SessionConversion, TriesAgainToMakeAConverter) {
  refusals = 1;  // the early one
  startWithMicrophone(16'000, 1);
  deliver(16'000, 1, 160);
  deliver(16'000, 1, 160);
  EXPECT_EQ(scripted->requests, 2) << "and keeps what it got";
  EXPECT_EQ(script.capacities.size(), 2U);
  EXPECT_EQ(errorOf([&] { session->stop(); }), "");

  refusals = 100;
  startWithMicrophone(16'000, 1);
  deliver(16'000, 1, 160);
  EXPECT_EQ(errorOf([&] { session->stop(); }),
            "Audio format error: Unable to create an AVAudioConverter.");
}

TEST_F(SessionConversion, KeepsTheConverterWhateverFormatComesNext) {
  startWithMicrophone(16'000, 1);
  deliver(16'000, 1, 160);
  deliver(44'100, 2, 441);
  EXPECT_EQ(scripted->requests, 1);
  EXPECT_EQ(script.capacities, (std::vector<std::uint32_t>{480, 481}));
  session->stop();
}

TEST_F(SessionConversion, RefusesCapacitiesThatAreNoCount) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [rate, frames] : std::vector<std::pair<double, std::uint32_t>>{
           {1e-6, 1}, {0, 1}, {0, 0}, {-48'000, 1}, {nan, 1}, {nan, 0}}) {
    script = Script();
    startWithMicrophone(16'000, 1);
    deliver(rate, 1, frames);
    EXPECT_EQ(errorOf([&] { session->stop(); }),
              "Audio format error: Unable to allocate the converted PCM buffer.")
        << rate << " " << frames;
    EXPECT_TRUE(script.capacities.empty());
  }
}

}  // namespace
}  // namespace quenlor::test
