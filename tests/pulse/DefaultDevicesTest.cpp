#include "tests/conversation/Conversation.h"
#include "tests/pulse/Pactl.h"

#include <array>
#include <cctype>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace quenlor::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Connects to the server again and again. Meanwhile PipeWire withholds changes of the default
/// devices from the clients that are connected already.
struct ConnectingClient {
  ChildProcess process{{"bash", "-c", "while :; do timeout 5 pactl info; done >/dev/null 2>&1"}};
};

std::string lowered(std::string name) {
  name.front() = static_cast<char>(std::tolower(name.front()));
  return name;
}

class DefaultDevices : public Conversation {
 protected:
  DefaultDevices() { awaitReady(child); }

  /// Makes it the default, and waits until the recording has followed. The trace has the device's
  /// name for people.
  void change(const std::string& kind, const std::string& device, const std::string& traceLine) {
    const std::size_t before = countLines(readFile(traceFile), traceLine);
    runPactl({"set-default-" + kind, device});
    const auto deadline = Clock::now() + 10s;
    while (Clock::now() < deadline && countLines(readFile(traceFile), traceLine) == before)
      std::this_thread::sleep_for(50ms);
    ASSERT_GT(countLines(readFile(traceFile), traceLine), before) << readFile(traceFile);
  }

  ChildProcess child = launch();
};

TEST_F(DefaultDevices, AreFollowedWhileOtherClientsConnect) {
  const std::array<ConnectingClient, 4> others;
  for (int i = 0; i < 15; ++i) {
    for (const std::string device : {"Headphones", "Speakers"})
      ASSERT_NO_FATAL_FAILURE(
          change("sink", lowered(device), "System audio comes from " + device + " now"));
    for (const std::string device : {"Headset", "Microphone"})
      ASSERT_NO_FATAL_FAILURE(
          change("source", lowered(device), "The microphone comes from " + device + " now"));
  }
  child.write("stop\n");
  expectRecording(finish(child), output);
}

}  // namespace
}  // namespace quenlor::test
