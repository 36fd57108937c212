#pragma once

#include "platform/AudioPlatform.h"
#include "platform/virtual/CallLedger.h"
#include "platform/virtual/Pace.h"
#include "platform/virtual/StreamDriver.h"
#include "platform/virtual/VirtualCaptureDevice.h"
#include "platform/virtual/VirtualHardware.h"
#include "platform/virtual/VirtualSettings.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace quenlor::platform::virtualhost {

/// A host with virtual devices that play known tones at any pace. Every call is recorded, and any
/// call can be made to fail.
///
/// Calls that the ledger fails: hardware calls return its status, start() and makeEngine() throw
/// PlatformError, inputFormat() returns 0 channels, makeFormat(), makeBuffer(), makeConverter() and
/// defaultDevice() return nothing, convert() reports an exception, authorizationStatus() returns
/// denied, and the answer to requestAccess() is no.
class VirtualPlatform final : public AudioPlatform {
 public:
  explicit VirtualPlatform(std::shared_ptr<Pace> drivingPace, const VirtualSettings& settings = {});
  ~VirtualPlatform() override;

  VirtualHardware& hardware() override { return virtualHardware; }
  CaptureDevice& captureDevice() override { return virtualCaptureDevice; }
  std::unique_ptr<AudioEngine> makeEngine() override;
  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override;
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override;
  std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) override;
  std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                        std::uint32_t frameCapacity) override;
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                const AudioFormat& to) override;
  std::chrono::system_clock::time_point currentTime() override;

  // The following are for tests. Called from the control thread, not from a block.

  /// May outlive the platform, to check that all objects were destroyed.
  const std::shared_ptr<CallLedger>& ledger() const { return callLedger; }

  void setOutputSignal(Signal signal) { driver.setOutputSignal(signal); }
  void setMicrophoneSignal(Signal signal) { driver.setMicrophoneSignal(signal); }

  /// Delivers these buffers, valid or not, to the IO block on its queue, and returns when the block
  /// has returned. Throws std::logic_error unless the device runs.
  void deliverSystem(AudioBufferList buffers);

  /// Delivers this buffer to the engine's tap. Throws std::logic_error unless the engine runs with
  /// a tap.
  void deliverMicrophone(std::shared_ptr<PCMBuffer> buffer);

 private:
  const std::shared_ptr<Pace> pace;
  const std::shared_ptr<CallLedger> callLedger = std::make_shared<CallLedger>();
  const std::optional<AudioFormat> microphoneFormat;
  StreamDriver driver;
  VirtualHardware virtualHardware;
  VirtualCaptureDevice virtualCaptureDevice;
};

}  // namespace quenlor::platform::virtualhost
