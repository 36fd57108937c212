#include "SessionFixture.h"
#include "WatchedPlatform.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

/// What encodeSample() makes of it, for samples well inside ±1.
std::int16_t stored(float sample) {
  return static_cast<std::int16_t>(std::lround(sample * 32'767.0F));
}

class SessionMixing : public SessionFixture {
 protected:
  void SetUp() override {
    makeSession(exactDevices());
    session->start();
  }

  /// Expects the recording to hold runs of one value each, of the given lengths, in both channels.
  void expectRuns(const std::vector<std::pair<float, std::size_t>>& runs) const {
    std::vector<std::int16_t> expected;
    for (const auto& [value, frames] : runs)
      expected.insert(expected.end(), 2 * frames, stored(value));
    EXPECT_EQ(recording().samples, expected);
  }
};

std::size_t fileFrames(const std::filesystem::path& path) {
  return (std::filesystem::file_size(path) - 44) / 4;
}

TEST_F(SessionMixing, AddsPadsAndLimits) {
  deliverSystem({0.8F, -0.9F, 0.25F, 0.5F, -0.5F, 0.1F, NAN, 0.3F},
                {0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0.7F, 0.8F});
  deliverMicrophone({0.7F, -0.4F, 0.25F, 0.5F, -0.5F, -0.3F, 0.5F},
                    {-0.4F, 0.0F, 0.9F, NAN, -0.9F, 0.1F, 0.2F});
  tick();
  session->stop();
  EXPECT_EQ(recording().samples,
            (std::vector<std::int16_t>{32'767, stored(-0.3F), -32'768, stored(0.2F), stored(0.5F),
                                       32'767, 32'767, 0, -32'768, stored(-0.4F), stored(-0.2F),
                                       stored(0.7F), 0, stored(0.9F), stored(0.3F), stored(0.8F)}));
}

TEST_F(SessionMixing, WritesAtMostATickAndKeepsTheRest) {
  // What arrives, and what one tick makes of it.
  const struct {
    std::size_t system, microphone, written;
  } steps[] = {{0, 0, 0}, {500, 0, 500}, {0, 300, 300},  {2000, 100, 960}, {0, 0, 960}, {0, 0, 80},
               {0, 0, 0}, {961, 1, 960}, {0, 2000, 960}, {0, 0, 960},      {0, 0, 80}};
  std::size_t total = 0;
  for (const auto& [system, microphone, written] : steps) {
    if (system > 0) deliverSystem(std::vector<float>(system, 0.25F));
    if (microphone > 0) deliverMicrophone(std::vector<float>(microphone, 0.5F));
    tick();
    total += written;
    ASSERT_EQ(fileFrames(path), total);
  }
  session->stop();
}

TEST_F(SessionMixing, PairsFramesByTheirOrder) {
  deliverSystem(std::vector<float>(2000, 0.25F));
  deliverMicrophone(std::vector<float>(100, 0.5F));
  tick();  // 100 sums, then the system alone
  deliverMicrophone(std::vector<float>(1040, 0.125F));
  tick();  // late frames go with whatever is taken with them
  session->stop();
  expectRuns({{0.75F, 100}, {0.25F, 860}, {0.375F, 1040}});
}

TEST_F(SessionMixing, DrainsWhatIsStoredAndWhatTheHostDeliversAtTheStop) {
  makePlatform(exactDevices());
  WatchedPlatform host(*platform);
  makeSessionOn(host);
  session->start();
  deliverSystem(std::vector<float>(2900, 0.25F));
  deliverMicrophone(std::vector<float>(1000, 0.5F));
  host.onRemoveTap = [this] { deliverMicrophone(std::vector<float>(200, 0.5F)); };
  host.onStopDevice = [this] { deliverSystem(std::vector<float>(100, 0.25F)); };
  EXPECT_EQ(session->stop().sizeBytes, 44 + 4 * 3000U);
  expectRuns({{0.75F, 1200}, {0.25F, 1800}});
}

TEST_F(SessionMixing, TicksFirstAfterOneInterval) {
  deliverSystem(std::vector<float>(10, 0.25F));
  clock->advance(AudioTapSession::mixInterval - std::chrono::nanoseconds(1));
  EXPECT_EQ(fileFrames(path), 0U);
  clock->advance(std::chrono::nanoseconds(1));
  EXPECT_EQ(fileFrames(path), 10U);
  session->stop();
  clock->advance(std::chrono::seconds(1));
  EXPECT_EQ(ledger().alive(ObjectKind::timer), 0U);
}

}  // namespace
}  // namespace quenlor::test
