#include "SessionFixture.h"

#include <array>

namespace quenlor::test {
namespace {

using platform::AudioBuffer;
using platform::AudioFormat;

class SessionIntake : public SessionFixture {};

/// Interleaved 44.1 kHz stereo: 8 bytes a frame.
VirtualSettings interleavedDevices() {
  VirtualSettings settings;
  settings.output->signal = Signal::nothing;
  settings.microphone->signal = Signal::nothing;
  return settings;
}

TEST_F(SessionIntake, RecordsTheFirstFaultOfALayout) {
  std::array<float, 64> samples{};
  const AudioBuffer whole{2, 256, samples.data()};
  auto planar = interleavedDevices();
  planar.output->interleaved = false;
  auto frameless = interleavedDevices();
  frameless.reportedStreamFormat = frameless.output->format().streamDescription();
  frameless.reportedStreamFormat->mBytesPerFrame = 0;
  struct Case {
    VirtualSettings settings;
    std::vector<AudioBuffer> buffers;
    std::string message;
  };
  const std::vector<Case> cases = {
      {frameless, {whole}, "The aggregate device reported zero bytes per frame."},
      {interleavedDevices(), {}, "The system tap callback reported zero frames."},
      {interleavedDevices(),
       {{2, 7, samples.data()}},
       "The system tap callback reported zero frames."},
      {interleavedDevices(), {{2, 0, nullptr}}, "The system tap callback reported zero frames."},
      {interleavedDevices(),
       {{2, 255, samples.data()}},
       "Owned system buffer was smaller than the callback payload."},
      {interleavedDevices(),
       {whole, whole},
       "Unexpected AudioBufferList layout from the system tap."},
      {planar, {whole}, "Unexpected AudioBufferList layout from the system tap."},
      {interleavedDevices(), {{2, 256, nullptr}}, "System tap buffer data was unexpectedly nil."},
      {planar,
       {{1, 128, samples.data()}, {1, 128, nullptr}},
       "System tap buffer data was unexpectedly nil."},
      {planar,
       {{1, 128, samples.data()}, {1, 132, samples.data()}},
       "Owned system buffer was smaller than the callback payload."}};
  for (const Case& one : cases) {
    makeSession(one.settings);
    session->start();
    platform->deliverSystem(one.buffers);
    // After the first fault, other faults and good buffers are dropped.
    platform->deliverSystem(std::vector<AudioBuffer>{{2, 0, nullptr}, {2, 0, nullptr}});
    platform->deliverSystem(std::vector<AudioBuffer>{whole});
    tick();
    EXPECT_EQ(errorOf([&] { session->stop(); }), "Audio format error: " + one.message);
    EXPECT_FALSE(fileExists());
    EXPECT_EQ(errorOf([&] { session->stop(); }), "The Quenlor audio session is not running.");
    expectEverythingReleased();
  }
}

TEST_F(SessionIntake, DropsBothSourcesAfterAFailure) {
  makeSession(exactDevices());
  session->start();
  deliverSystem(std::vector<float>(100, 0.5F));
  tick();
  const auto written = std::filesystem::file_size(path);
  platform->deliverSystem(std::vector<AudioBuffer>{});
  deliverSystem(std::vector<float>(100, 0.5F));
  deliverMicrophone(std::vector<float>(100, 0.5F));
  tick();
  EXPECT_EQ(std::filesystem::file_size(path), written);
  EXPECT_NE(errorOf([&] { session->stop(); }), "");
}

TEST_F(SessionIntake, TakesShorterSecondBuffers) {
  auto settings = exactDevices();
  makeSession(settings);
  session->start();
  std::array<float, 64> samples{};
  platform->deliverSystem(
      std::vector<AudioBuffer>{{1, 256, samples.data()}, {1, 128, samples.data()}});
  EXPECT_EQ(session->stop().sizeBytes, 44 + 4 * 64U);
}

TEST_F(SessionIntake, DoesNothingOnceTheSessionIsGone) {
  makeSession({});
  session->start();
  clock->advance(std::chrono::milliseconds(100));
  session->discardIfUnfinished();
  const std::weak_ptr<AudioTapSession> gone = session;
  session.reset();
  EXPECT_TRUE(gone.expired());
  clock->advance(std::chrono::seconds(1));
  EXPECT_EQ(ledger().aliveInAll(), 0U);
}

}  // namespace
}  // namespace quenlor::test
