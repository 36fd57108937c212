#include "platform/virtual/StreamDriver.h"

#include <utility>

namespace quenlor::platform::virtualhost {

std::shared_ptr<PCMBuffer> StreamDriver::Stream::cut(std::uint64_t first, std::uint64_t last,
                                                     bool silent) const {
  const std::uint64_t firstFrame = first * settings.sampleRate / kCyclesPerSecond;
  const std::uint64_t endFrame = last * settings.sampleRate / kCyclesPerSecond;
  const auto frames = static_cast<std::uint32_t>(endFrame - firstFrame);
  std::shared_ptr<PCMBuffer> buffer = PCMBuffer::create(settings.format(), frames);
  if (!buffer) return nullptr;
  buffer->setFrameLength(frames);
  tone.fill(buffer->audioBufferList(), firstFrame, silent);
  return buffer;
}

StreamDriver::StreamDriver(Pace& drivingPace, const VirtualSettings& settings)
    : pace(drivingPace),
      deviceQueue(pace.makeDeviceQueue()),
      output(settings.output),
      microphone(settings.microphone),
      outputSignal(settings.output ? settings.output->signal : Signal::nothing),
      microphoneSignal(settings.microphone ? settings.microphone->signal : Signal::nothing) {}

StreamDriver::~StreamDriver() {
  stopSystem();
}

void StreamDriver::startSystem(std::shared_ptr<const SystemReceiver> receiver) {
  // First, since it may throw: without a timer, stopSystem() would not remove the receiver.
  timer = pace.makeTimer(deviceQueue);
  {
    MutexLock lock(mutex);
    systemReceiver = std::move(receiver);
    startTime = pace.elapsed();
    cyclesDelivered = 0;
  }
  timer->schedule(kFirstBurst, kCycle, std::chrono::nanoseconds::zero());
  timer->setEventHandler([this] { deliverDue(); });
  timer->resume();
}

void StreamDriver::stopSystem() {
  if (!timer) return;
  timer->cancel();
  timer = nullptr;
  Receiver released;  // destroyed outside the lock: its captures may call this object
  {
    MutexLock lock(mutex);
    released.swap(systemReceiver);
  }
  waitForTurn();
}

void StreamDriver::startMicrophone(Tap tap) {
  MutexLock lock(mutex);
  microphoneTap = std::move(tap);
}

void StreamDriver::stopMicrophone(const Tap& tap) {
  forgetMicrophone(tap);
  waitForTurn();
}

void StreamDriver::forgetMicrophone(const Tap& tap) {
  MutexLock lock(mutex);
  if (microphoneTap == tap) microphoneTap = nullptr;
}

void StreamDriver::setOutputSignal(Signal signal) {
  MutexLock lock(mutex);
  outputSignal = signal;
}

void StreamDriver::setMicrophoneSignal(Signal signal) {
  MutexLock lock(mutex);
  microphoneSignal = signal;
}

// The receiver is looked up as the devices' work. A stop removes the receiver and then waits for
// that work, so no call comes after it.
bool StreamDriver::deliverSystem(AudioBufferList buffers) {
  bool taken = false;
  deviceQueue->sync([&] {
    const Receiver receiver = runningReceiver();
    if (!receiver) return;
    receiver->queue->sync([&] { receiver->block(buffers); });
    taken = true;
  });
  return taken;
}

bool StreamDriver::deliverMicrophone(std::shared_ptr<PCMBuffer> buffer) {
  bool taken = false;
  deviceQueue->sync([&] {
    const Tap tap = runningTap();
    if (!tap) return;
    (*tap)(std::move(buffer));
    taken = true;
  });
  return taken;
}

StreamDriver::Receiver StreamDriver::runningReceiver() {
  MutexLock lock(mutex);
  return systemReceiver;
}

StreamDriver::Tap StreamDriver::runningTap() {
  MutexLock lock(mutex);
  return microphoneTap;
}

void StreamDriver::deliverDue() {
  const Turn turn = takeTurn();
  // A late tick has delivered this one's cycles too. A device never delivers an empty buffer.
  if (turn.firstCycle == turn.lastCycle) return;
  if (output && turn.receiver && turn.outputSignal != Signal::nothing) {
    const bool silent = turn.outputSignal == Signal::silence;
    const auto buffer = output->cut(turn.firstCycle, turn.lastCycle, silent);
    if (buffer)
      turn.receiver->queue->sync([&] { turn.receiver->block(buffer->audioBufferList()); });
  }
  if (microphone && turn.tap && turn.microphoneSignal != Signal::nothing) {
    const bool silent = turn.microphoneSignal == Signal::silence;
    auto buffer = microphone->cut(turn.firstCycle, turn.lastCycle, silent);
    if (buffer) (*turn.tap)(std::move(buffer));
  }
}

StreamDriver::Turn StreamDriver::takeTurn() {
  MutexLock lock(mutex);
  const auto due = static_cast<std::uint64_t>((pace.elapsed() - startTime) / kCycle);
  return {std::exchange(cyclesDelivered, due),
          due,
          systemReceiver,
          microphoneTap,
          outputSignal,
          microphoneSignal};
}

void StreamDriver::waitForTurn() const {
  deviceQueue->sync([] {});
}

}  // namespace quenlor::platform::virtualhost
