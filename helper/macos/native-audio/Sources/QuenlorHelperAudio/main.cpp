#include "AudioTapSession.h"
#include "BridgePayloads.h"
#include "FileHandle.h"
#include "FramedStdinReader.h"
#include "LocalizedError.h"
#include "SidecarControlProtocol.h"
#include "SidecarRuntimeError.h"
#include "SidecarTrace.h"
#include "platform/AudioPlatform.h"
#include "platform/TemporaryFolder.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <pthread.h>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace quenlor {

namespace {

/// The conversation with the parent: one start request, one recording, one stop.
class QuenlorHelperAudioMain {
 public:
  QuenlorHelperAudioMain() = delete;

  /// Returns once the result has been written. Throws whatever ends the run early.
  static void run();

  static void writeError(const std::exception& error);

 private:
  static StartRequest readStartRequest(FramedStdinReader& reader);
  static void record(AudioTapSession& session, FramedStdinReader& reader);
  static void writeFrame(std::string_view json);
};

void QuenlorHelperAudioMain::run() {
  FramedStdinReader reader(STDIN_FILENO);
  const StartRequest request = readStartRequest(reader);

  logSidecarTrace("Creating the audio tap session.");
  const auto host = platform::makeAudioPlatform(logSidecarTrace);
  const auto session = std::make_shared<AudioTapSession>(request, *host);
  try {
    record(*session, reader);
  } catch (...) {
    session->discardIfUnfinished();
    throw;
  }
}

StartRequest QuenlorHelperAudioMain::readStartRequest(FramedStdinReader& reader) {
  const std::optional<std::string> frame = reader.readFrame();
  if (!frame) throw SidecarRuntimeError::emptyStartRequest();
  logSidecarTrace("Received start request frame from the helper.");
  StartRequest request = SidecarControlProtocol::decodeStartRequestFrame(*frame);
  logSidecarTrace("Decoded start request for title: " + request.title);
  if (request.mode != "mixed") throw SidecarRuntimeError::mixedModeRequired(request.mode);
  return request;
}

void QuenlorHelperAudioMain::record(AudioTapSession& session, FramedStdinReader& reader) {
  logSidecarTrace("Starting the audio tap session.");
  session.start();
  logSidecarTrace("Audio tap session reached ready state.");
  writeFrame(ReadyFrame{.status = "ready"}.encode());

  // The end of input is a stop as well: a recording must not outlive its parent.
  if (const std::optional<std::string> frame = reader.readFrame())
    SidecarControlProtocol::parseStopFrame(*frame);
  logSidecarTrace("Stop signal received. Finalizing capture.");
  writeFrame(session.stop().encode());
}

/// Two writes, as documented for parents: the reply, then its line feed.
void QuenlorHelperAudioMain::writeFrame(std::string_view json) {
  try {
    writeAll(STDOUT_FILENO, std::as_bytes(std::span(json)));
    writeAll(STDOUT_FILENO, std::as_bytes(std::span(std::string_view("\n"))));
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), "Writing the reply to standard output failed");
  }
}

void QuenlorHelperAudioMain::writeError(const std::exception& error) {
  // what() ends at a NUL, which the mode that the parent sent may contain.
  const auto* described = dynamic_cast<const LocalizedError*>(&error);
  reportSidecarError(described != nullptr ? std::string_view(described->errorDescription())
                                          : error.what());
}

/// A parent may start this program with descriptors 0, 1 or 2 closed. Opens /dev/null on them, so
/// that no other file gets these numbers and with them the replies or the trace. Opens it in the
/// wrong direction, so that reading input and writing replies fail as on a closed descriptor.
void fillStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest free number is taken, which is this one.
    if (::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) ::_exit(1);
  }
}

/// Blocks the signals of failed writes, so that a closed pipe or a file-size limit is an error
/// instead of the end of the process. Called before any thread exists, so that every thread
/// inherits the mask. The dispositions stay as the parent set them.
void blockWriteSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  sigaddset(&signals, SIGXFSZ);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

}  // namespace quenlor

int main() {
  quenlor::fillStandardDescriptors();
  quenlor::blockWriteSignals();
  try {
    quenlor::locateSidecarLog(quenlor::platform::temporaryFolder());
    quenlor::QuenlorHelperAudioMain::run();
    return 0;
  } catch (const std::exception& error) {
    quenlor::QuenlorHelperAudioMain::writeError(error);
  } catch (...) {
    // A host may throw exceptions of another language.
    quenlor::reportSidecarError("The system raised an exception.");
  }
  return 1;
}
