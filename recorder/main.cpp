// quenlor-record: records from a console. See man/quenlor-record.1.

#include "recorder/Options.h"
#include "recorder/Recorder.h"

#include <csignal>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace quenlor::recorder {

namespace {

/// Whoever starts this program without one of them shall not find a pipe or a recording there.
void fillStandardDescriptors() {
  int descriptor = 0;
  while (descriptor >= 0 && descriptor <= STDERR_FILENO)
    descriptor = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  ::close(descriptor);
}

}  // namespace

}  // namespace quenlor::recorder

int main(int argumentCount, char** arguments) {
  namespace recorder = quenlor::recorder;
  recorder::fillStandardDescriptors();
  // Writing where nobody listens shall be an error and not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const recorder::Options options = recorder::parseOptions(argumentCount, arguments);
    return recorder::Recorder(options).run();
  } catch (const std::exception& error) {
    std::cerr << "quenlor-record: " << error.what() << '\n';
    return 1;
  }
}
