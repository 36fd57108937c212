#include "tests/conversation/Conversation.h"
#include "tests/pulse/Pactl.h"
#include "tests/support/WaveFile.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double recordedRate = 48000;

// How far the length of a silence may be off, in seconds, on a busy machine: by what one source was
// ahead of the other, and by the portions in which samples end and come again.
constexpr double tolerance = 0.1;

// How long it may take to follow a switch of devices, and how long that may be heard as silence.
constexpr double longestSwitch = 0.2;

// What is on its way through the server at the time of a fault is lost with it.
constexpr double onTheWay = 0.12;

/// A stretch in seconds from the beginning of the recording.
struct Stretch {
  double begin;
  double end;
  double length() const { return end - begin; }
};

/// Where a source is silent for longer than a tone ever is.
std::vector<Stretch> silencesIn(const std::vector<float>& samples) {
  constexpr double shortest = 0.015;
  std::vector<Stretch> silences;
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= samples.size(); ++i) {
    if (i < samples.size() && std::abs(samples[i]) < 0.005F) continue;
    const Stretch silence{static_cast<double>(begin) / recordedRate,
                          static_cast<double>(i) / recordedRate};
    if (silence.length() >= shortest) silences.push_back(silence);
    begin = i + 1;
  }
  return silences;
}

/// A recording from a server that has faults while it runs.
class ServerFault : public Conversation {
 protected:
  ServerFault() {
    awaitReady(child);
    begin = Clock::now();
    std::this_thread::sleep_for(1500ms);
  }

  /// The time since the ready line, in seconds: where in the recording what happens now belongs.
  double now() const { return std::chrono::duration<double>(Clock::now() - begin).count(); }

  static pid_t server() {
    return std::stoi(readFile(std::filesystem::path(std::getenv("HOME")) / "pid"));
  }

  static void restartServer() {
    ASSERT_EQ(kill(std::atoi(std::getenv("PRIVATE_SERVER_SCRIPT")), SIGUSR1), 0);
  }

  static void unloadModuleWith(const std::string& argument) {
    for (const std::string& line : linesOf(runPactl({"list", "short", "modules"})))
      if (line.find(argument) != std::string::npos)
        runPactl({"unload-module", line.substr(0, line.find('\t'))});
  }

  /// Stops, and takes the recording apart: system audio is on the left channel alone.
  void stop() {
    const double length = now();
    child.write("stop\n");
    const Outcome run = finish(child, 1s);
    errors = run.errors;
    expectRecording(run, output);
    const WaveFile wave = readWaveFile(output);
    EXPECT_NEAR(wave.durationSeconds(), length, 0.2) << errors;
    microphone = silencesIn(wave.right);
    system = silencesIn(wave.leftAlone());
    end = wave.durationSeconds();
    // A source may have slept at the beginning. At the end, one may be longer than the other.
    const auto isAtAnEnd = [this](const Stretch& each) {
      return (each.begin == 0 && each.end < 1) || each.begin > end - 0.2;
    };
    std::erase_if(system, isAtAnEnd);
    std::erase_if(microphone, isAtAnEnd);
  }

  /// Does something to the server, which happens at some time before it is done.
  template <typename Action>
  Stretch timeOf(Action action) {
    const double before = now();
    action();
    return {before, now()};
  }

  static void expectLoss(const Stretch& silence, const Stretch& fault) {
    EXPECT_GT(silence.begin, fault.begin - onTheWay);
    EXPECT_LT(silence.begin, fault.end + 0.05);
  }

  /// The source fell silent with the fault, until it was over, and not long after that.
  void expectSilence(const std::vector<Stretch>& silences, const Stretch& fault,
                     const Stretch& recovery) {
    ASSERT_FALSE(silences.empty()) << errors;
    expectLoss(silences.front(), fault);
    EXPECT_GT(total(silences), recovery.begin - fault.end - tolerance) << describe(silences);
    EXPECT_LT(total(silences), recovery.end - fault.begin + tolerance) << describe(silences);
    // A server that ran on catches up in a burst, and pauses after it.
    EXPECT_GT(silences.back().end, recovery.begin - 2 * tolerance) << describe(silences) << errors;
    EXPECT_LT(silences.back().end, recovery.end + 2 * tolerance) << describe(silences) << errors;
  }

  /// The source fell silent with the fault at first, and is heard at the end.
  void expectReturn(const std::vector<Stretch>& silences, const Stretch& fault) {
    ASSERT_FALSE(silences.empty()) << errors;
    expectLoss(silences.front(), fault);
    EXPECT_LT(silences.back().end, end - 0.3) << describe(silences) << errors;
  }

  static double total(const std::vector<Stretch>& silences) {
    double sum = 0;
    for (const Stretch& each : silences) sum += each.length();
    return sum;
  }

  static std::string describe(const std::vector<Stretch>& silences) {
    std::string text;
    for (const Stretch& each : silences)
      text += std::to_string(each.begin) + " to " + std::to_string(each.end) + " s\n";
    return text;
  }

  ChildProcess child = launch();
  Clock::time_point begin;
  std::string errors;
  std::vector<Stretch> system;
  std::vector<Stretch> microphone;
  double end = 0;
};

class ServerRestart : public ServerFault, public testing::WithParamInterface<int> {};

TEST_P(ServerRestart, IsSurvivedByBothSources) {
  const Stretch death = timeOf([] { kill(server(), SIGKILL); });
  std::this_thread::sleep_for(std::chrono::milliseconds(GetParam()));
  restartServer();
  std::this_thread::sleep_for(6s);
  stop();
  expectReturn(system, death);
  expectReturn(microphone, death);
  EXPECT_EQ(countLines(errors, "sound server"), 2u) << errors;
  EXPECT_LE(countLines(errors, "comes from") + countLines(errors, "interrupted"), 8u) << errors;
}

INSTANTIATE_TEST_SUITE_P(Soon, ServerRestart, testing::Values(200, 2000));
INSTANTIATE_TEST_SUITE_P(Late, ServerRestart, testing::Values(20000));

TEST_F(ServerFault, HangIsBridgedBySilenceOfItsLength) {
  const Stretch hang = timeOf([] { kill(server(), SIGSTOP); });
  std::this_thread::sleep_for(3s);
  const Stretch recovery = timeOf([] { kill(server(), SIGCONT); });
  std::this_thread::sleep_for(1500ms);
  stop();
  expectSilence(system, hang, recovery);
  expectSilence(microphone, hang, recovery);
}

// What the server kept meanwhile is recorded, and nothing is taken for a silence of the server's.
TEST_F(ServerFault, FreezeOfTheRecorderLosesNothing) {
  for (const auto freeze : {300ms, 1000ms, 3000ms}) {
    child.sendSignal(SIGSTOP);
    std::this_thread::sleep_for(freeze);
    child.sendSignal(SIGCONT);
    std::this_thread::sleep_for(1500ms);
  }
  stop();
  EXPECT_TRUE(system.empty()) << describe(system) << errors;
  EXPECT_TRUE(microphone.empty()) << describe(microphone) << errors;
  EXPECT_EQ(countLines(errors, "interrupted"), 0u) << errors;
}

class ServerSuspension : public ServerFault {};

TEST_F(ServerSuspension, OfTheOutputLeavesTheMicrophoneWhole) {
  const Stretch suspension = timeOf([] { runPactl({"suspend-sink", "speakers", "1"}); });
  std::this_thread::sleep_for(2s);
  const Stretch resumption = timeOf([] { runPactl({"suspend-sink", "speakers", "0"}); });
  std::this_thread::sleep_for(1500ms);
  stop();
  expectSilence(system, suspension, resumption);
  EXPECT_TRUE(microphone.empty()) << describe(microphone);
}

TEST_F(ServerFault, MonitorIsNeverTakenForTheMicrophone) {
  const Stretch loss = timeOf([] { runPactl({"set-default-source", "speakers.monitor"}); });
  std::this_thread::sleep_for(1500ms);
  const double backAt = now();
  runPactl({"set-default-source", "microphone"});
  std::this_thread::sleep_for(1500ms);
  stop();
  EXPECT_LE(total(system), longestSwitch) << describe(system) << errors;
  // A microphone that nobody listened to may take its time to wake up.
  const auto longest = std::ranges::max_element(microphone, {}, &Stretch::length);
  ASSERT_NE(longest, microphone.end()) << errors;
  EXPECT_GT(longest->begin, loss.begin - onTheWay);
  EXPECT_LT(longest->begin, loss.end + longestSwitch);
  EXPECT_GT(longest->end, backAt - onTheWay) << describe(microphone) << errors;
  EXPECT_LT(longest->end, end - 0.3) << describe(microphone) << errors;
  EXPECT_EQ(countLines(errors, "The microphone is interrupted"), 1u) << errors;
}

// Last of its kind: a server may move the private server's listeners along with the default device.
TEST_F(ServerFault, DefaultDevicesAreFollowed) {
  runPactl({"set-default-sink", "headphones"});
  std::this_thread::sleep_for(1500ms);
  runPactl({"set-default-source", "headset"});
  std::this_thread::sleep_for(1500ms);
  stop();
  runPactl({"set-default-sink", "speakers"});
  runPactl({"set-default-source", "microphone"});
  for (const auto* silences : {&system, &microphone}) {
    EXPECT_LE(total(*silences), longestSwitch) << describe(*silences) << errors;
  }
  EXPECT_EQ(countLines(errors, "System audio comes from Headphones now"), 1u);
  EXPECT_EQ(countLines(errors, "The microphone comes from Headset now"), 1u);
}

class ServerUnplugging : public ServerFault {};

TEST_F(ServerUnplugging, MicrophoneIsHeardAgainOnceItIsBack) {
  const Stretch loss = timeOf([] { unloadModuleWith("source_name=microphone "); });
  std::this_thread::sleep_for(1s);
  runPactl({"load-module", "module-remap-source", "source_name=microphone",
            "master=microphone-feed.monitor", "remix=no", "channels=1", "channel_map=mono"});
  runPactl({"set-default-source", "microphone"});
  std::this_thread::sleep_for(2s);
  stop();
  expectReturn(microphone, loss);
  EXPECT_LE(total(system), longestSwitch) << describe(system) << errors;
  EXPECT_EQ(countLines(errors, "The microphone is interrupted"), 1u) << errors;
}

class ServerRemoval : public ServerFault {};

TEST_F(ServerRemoval, OutputIsReplacedByTheNextDefault) {
  unloadModuleWith("sink_name=speakers ");
  runPactl({"set-default-sink", "headphones"});
  std::this_thread::sleep_for(2s);
  stop();
  EXPECT_LE(total(system), longestSwitch) << describe(system) << errors;
  EXPECT_EQ(countLines(errors, "System audio comes from Headphones now"), 1u) << errors;
  EXPECT_EQ(countLines(errors, "The microphone comes"), 0u) << errors;
}

}  // namespace
}  // namespace quenlor::test
