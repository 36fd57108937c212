// What else a parent or a machine may do to a recording, beyond what tests/conversation tries.

#include "tests/conversation/Conversation.h"
#include "tests/support/Tone.h"
#include "tests/support/WaveFile.h"

#include <chrono>
#include <functional>
#include <span>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quenlor::test {
namespace {

namespace fs = std::filesystem;

class Hostile : public Conversation {
 protected:
  void putSocketAtOutput() const {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    output.string().copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);
  }

  /// As many as the program inherits besides the standard streams.
  void openDescriptors(int count) {
    for (int i = 0; i < count; ++i) opened.push_back(::dup(STDIN_FILENO));
  }

  void TearDown() override {
    ::umask(oldMask);
    for (const int descriptor : opened) ::close(descriptor);
  }

  const mode_t oldMask = ::umask(022);
  std::vector<int> opened;
};

TEST_F(Hostile, SurroundingsChangeNothing) {
  const std::vector<std::pair<const char*, std::function<void()>>> surroundings = {
      {"a socket at the output path", [this] { putSocketAtOutput(); }},
      {"a mask that leaves nothing to others", [] { ::umask(077); }},
      {"sixty inherited descriptors", [this] { openDescriptors(60); }},
  };
  for (const auto& [name, prepare] : surroundings) {
    SCOPED_TRACE(name);
    prepare();
    expectRecording(recordUntil("stop\n"), output);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(output)));
    fs::remove(output);
  }
}

#ifdef QUENLOR_SHORT_COUNTS_PATH
TEST_F(Hostile, ShortReadsAndWritesChangeNothing) {
  options.environment["LD_PRELOAD"] = QUENLOR_SHORT_COUNTS_PATH;
  ChildProcess child = launch();
  awaitReady(child);
  std::this_thread::sleep_for(std::chrono::milliseconds{500});
  child.write("stop\n");
  const Outcome run = finish(child);
  expectRecording(run, output);
  EXPECT_EQ(readFile(traceFile), run.errors);

  // 50 ms hold whole periods of both tones; what is lost between two writes breaks them.
  const WaveFile wave = readWaveFile(output);
  const std::span<const float> settled = std::span(wave.left).subspan(7200, 12000);
  const ToneFit system = fitTone(settled, 440, 48000);
  EXPECT_LT(fitTone(withoutTone(settled, 440, 48000, system), 1000, 48000).residualDecibels, -50);
}
#endif

}  // namespace
}  // namespace quenlor::test
