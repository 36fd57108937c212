#include "tests/conversation/Conversation.h"
#include "tests/pulse/Pactl.h"
#include "tests/support/LocalSocket.h"
#include "tests/support/Tone.h"
#include "tests/support/WaveFile.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

// What the private server plays: one tone on the left channel of the output, another one on the
// mono microphone.
constexpr double systemHertz = 997;
constexpr double microphoneHertz = 440;
constexpr double playedAmplitude = 0.25;
constexpr double recordedRate = 48000;

/// After half a second, and until 5 ms before the end, there is the tone as it was played and
/// nothing else. The microphone follows the clock of the output, so its tone is compared a piece at
/// a time.
void expectTone(const std::vector<float>& samples, double hertz, std::size_t piece,
                double residualDecibels) {
  constexpr std::size_t first = 24'000, tail = 240;
  ASSERT_GT(samples.size(), first + piece + tail);
  const std::span<const float> part(samples.data() + first, samples.size() - first - tail);
  // One sample lost or repeated departs by 300 steps of 16 bits or more. A server that corrects its
  // clocks while it resamples was seen to depart by up to 21, with other recorders as well.
  EXPECT_EQ(findBreaks(part, hertz, recordedRate, 64.0 / 32768), std::vector<std::size_t>())
      << hertz << " Hz";
  for (std::size_t begin = 0; begin + piece <= part.size(); begin += piece) {
    const ToneFit fit = fitTone(part.subspan(begin, piece), hertz, recordedRate);
    EXPECT_NEAR(fit.amplitude, playedAmplitude, 0.002) << hertz << " Hz";
    EXPECT_LT(fit.residualDecibels, residualDecibels) << hertz << " Hz";
  }
}

class ServerRecording : public Conversation {};

/// A bare recorder beside the program, of a source's first channel: what it hears broken, the
/// server has broken.
class Control {
 public:
  Control(const std::string& source, int rate, std::filesystem::path samplesFile)
      : file(std::move(samplesFile)),
        rateInHertz(rate),
        recorder({"parec", "--raw", "--format=float32le", "--latency-msec=40", "--device=" + source,
                  "--rate=" + std::to_string(rate), "--channels=1", "--channel-map=front-left",
                  file.string()}) {}

  /// Ends the recorder. Whether the tone was whole after the first 0.5 s.
  bool heardWhole(double hertz) {
    recorder.sendSignal(SIGTERM);
    recorder.waitForExit();
    const std::string bytes = readFile(file);
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    const auto settled = static_cast<std::size_t>(rateInHertz / 2);
    return samples.size() > 2 * settled &&
           findBreaks(std::span(samples).subspan(settled), hertz, rateInHertz, 0.0005).empty();
  }

 private:
  const std::filesystem::path file;
  const int rateInHertz;
  ChildProcess recorder;
};

// A server that is short of time breaks the tones for everybody. So a recording counts only where
// bare recorders beside it heard both tones whole.
TEST_F(ServerRecording, HoldsBothTonesWhole) {
  for (int attempt = 0; attempt < 16; ++attempt) {
    Control system("speakers.monitor", 44100, folder / "system");
    Control microphone("microphone", 16000, folder / "microphone");
    ChildProcess child = launch();
    ASSERT_NO_FATAL_FAILURE(awaitReady(child));
    const auto ready = Clock::now();
    std::this_thread::sleep_for(3s);
    const std::chrono::duration<double> recorded = Clock::now() - ready;
    child.write("stop\n");
    expectRecording(finish(child), output);
    const bool systemIsWhole = system.heardWhole(systemHertz);
    if (!microphone.heardWhole(microphoneHertz) || !systemIsWhole) continue;
    const WaveFile wave = readWaveFile(output);
    EXPECT_NEAR(wave.durationSeconds(), recorded.count(), 0.01);
    expectTone(wave.leftAlone(), systemHertz, 96'000, -75);
    expectTone(wave.right, microphoneHertz, 960, -25);
    return;
  }
  FAIL() << "In each attempt the server broke a tone.";
}

TEST_F(ServerRecording, NamesItsStreamAfterTheTitleWhileItLasts) {
  std::string line = startLine();
  line.replace(line.find("Weekly"), 6, "Größe 1");
  ChildProcess child = launch();
  child.write(line);
  ASSERT_EQ(child.readLine(), R"({"status":"ready"})") << child.standardError();
  const std::string during = runPactl({"list", "source-outputs"});
  EXPECT_THAT(during, HasSubstr(R"(media.name = "Größe 1")"));
  EXPECT_THAT(during, HasSubstr(R"(application.name = "Quenlor Helper")"));
  child.write("stop\n");
  expectRecording(finish(child), output);
  EXPECT_THAT(runPactl({"list", "source-outputs"}), Not(HasSubstr("Quenlor Helper")));
}

// A server refuses such a name with the whole connection.
TEST_F(ServerRecording, TakesALongTitle) {
  std::string line = startLine(), title;
  while (title.size() < 70'000) title += "ö";
  line.replace(line.find("Weekly"), 6, "x" + title);
  ChildProcess child = launch();
  child.write(line);
  ASSERT_EQ(child.readLine(), R"({"status":"ready"})") << child.standardError();
  const std::string during = runPactl({"list", "source-outputs"});
  EXPECT_THAT(during, HasSubstr("media.name = \"x" + title.substr(0, 254) + "\"\n"));
  child.write("stop\n");
  expectRecording(finish(child), output);
}

// A stuck plug-in of another program.
TEST_F(ServerRecording, KeepsTheMicrophoneWholeWhileTheOutputIsNotANumber) {
  const std::vector<float> samples(4 * 88'200, std::numeric_limits<float>::quiet_NaN());
  std::ofstream(folder / "stuck", std::ios::binary)
      .write(reinterpret_cast<const char*>(samples.data()),
             static_cast<std::streamsize>(samples.size() * sizeof(float)));
  ChildProcess child = launch();
  ASSERT_NO_FATAL_FAILURE(awaitReady(child));
  ChildProcess player({"pacat", "--playback", "--raw", "--format=float32le", "--rate=44100",
                       "--channels=2", "--device=speakers", (folder / "stuck").string()});
  std::this_thread::sleep_for(3s);
  child.write("stop\n");
  expectRecording(finish(child), output);
  player.sendSignal(SIGTERM);
  player.waitForExit();
  const WaveFile wave = readWaveFile(output);
  expectTone(wave.right, microphoneHertz, 960, -25);
  const std::span<const float> system = std::span(wave.left).subspan(96'000, 24'000);
  EXPECT_LT(fitTone(system, systemHertz, recordedRate).amplitude, 0.01) << "Nothing was stuck.";
}

TEST_F(ServerRecording, SystemAudioDoesNotWaitForASuspendedMicrophone) {
  runPactl({"suspend-source", "microphone", "1"});
  const Outcome run = recordUntil("stop\n", 2s);
  runPactl({"suspend-source", "microphone", "0"});
  expectRecording(run, output);
  const WaveFile wave = readWaveFile(output);
  EXPECT_GT(wave.durationSeconds(), 1.5);
  const auto system = std::span<const float>(wave.left).subspan(24'000, 48'000);
  EXPECT_NEAR(fitTone(system, systemHertz, recordedRate).amplitude, playedAmplitude, 0.02);
}

TEST_F(ServerRecording, StopAnswersThoughTheServerHangs) {
  const pid_t server = std::atoi(std::getenv("PRIVATE_SERVER_PID"));
  ChildProcess child = launch();
  ASSERT_NO_FATAL_FAILURE(awaitReady(child));
  std::this_thread::sleep_for(1s);
  ASSERT_EQ(kill(server, SIGSTOP), 0);
  child.write("stop\n");
  const Outcome run = finish(child, 5s);
  kill(server, SIGCONT);
  expectRecording(run, output);
}

class ServerDeath : public Conversation {};

TEST_F(ServerDeath, LeavesOneLineInTheTraceAndWhatWasRecorded) {
  ChildProcess child = launch();
  ASSERT_NO_FATAL_FAILURE(awaitReady(child));
  std::this_thread::sleep_for(1s);
  ASSERT_EQ(kill(std::atoi(std::getenv("PRIVATE_SERVER_PID")), SIGKILL), 0);
  std::this_thread::sleep_for(500ms);
  child.write("stop\n");
  const Outcome run = finish(child);
  expectRecording(run, output);
  EXPECT_GT(readWaveFile(output).durationSeconds(), 0.8);
  EXPECT_EQ(countLines(run.errors, "sound server"), 1u) << run.errors;
}

class NoMicrophone : public Conversation {};

TEST_F(NoMicrophone, IsToldFromTheMonitorThatIsTheDefaultSource) {
  const Outcome run = converse(startLine());
  EXPECT_EQ(expectFailure(run, ""),
            "No microphone input node is available for the Quenlor audio session.");
  EXPECT_THAT(run.errors, HasSubstr("speakers.monitor, is the monitor of an output."));
  EXPECT_TRUE(filesLeft().empty());
}

class Unreachable : public Conversation {
 protected:
  /// A run that fails because of its server, and in time.
  std::string failureWith(const std::string& server) {
    setUp += "export PULSE_SERVER='" + server + "'\n";
    const auto begin = Clock::now();
    const std::string error = expectFailure(converse(startLine()), "");
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    EXPECT_FALSE(std::filesystem::exists(output));
    return error;
  }
};

TEST_F(Unreachable, RefusedConnectionFailsWithItsCause) {
  EXPECT_EQ(failureWith("unix:" + (folder / "nowhere").string()),
            "The sound server could not be reached: Connection refused.");
}

TEST_F(Unreachable, ServerThatHangsFailsInTime) {
  const LocalSocket server(folder / "silent");
  EXPECT_EQ(failureWith("unix:" + (folder / "silent").string()),
            "The sound server could not be reached: It did not answer in time.");
}

}  // namespace
}  // namespace quenlor::test
