#include "tests/conversation/Conversation.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace quenlor::test {
namespace {

using Clock = std::chrono::steady_clock;

/// Takes connections and never answers, as a server that hangs.
class SilentServer {
 public:
  explicit SilentServer(const std::filesystem::path& path)
      : descriptor(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, 8) != 0)
      throw std::runtime_error("The silent server cannot listen.");
  }
  ~SilentServer() { close(descriptor); }
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;

 private:
  int descriptor;
};

class Unreachable : public Conversation {
 protected:
  /// A run that fails because of its server, and in time.
  std::string failureWith(const std::string& server) {
    options.environment["PULSE_SERVER"] = server;
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
  const SilentServer server(folder / "silent");
  EXPECT_EQ(failureWith("unix:" + (folder / "silent").string()),
            "The sound server could not be reached: It did not answer in time.");
}

}  // namespace
}  // namespace quenlor::test
