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

/// A host without an operating system: in-process devices that play known tones, at any pace, with
/// every call on record and any call made to fail.
///
/// How the calls that the ledger fails look to the caller: hardware calls give its status, start()
/// and makeEngine() throw PlatformError, inputFormat() has 0 channels, makeFormat(), makeBuffer(),
/// makeConverter() and defaultDevice() give nothing, convert() reports an error object,
/// authorizationStatus() is denied and requestAccess() is answered with no.
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

  // From here on: what tests ask for. Called from the control thread, and from no block.

  /// May be kept beyond the platform's life, to see that nothing is left over.
  const std::shared_ptr<CallLedger>& ledger() const { return callLedger; }

  void setOutputSignal(Signal signal) { driver.setOutputSignal(signal); }
  void setMicrophoneSignal(Signal signal) { driver.setMicrophoneSignal(signal); }

  /// Hands these buffers, whatever they are, to the IO block on its queue, and returns when it has
  /// taken them. Throws std::logic_error unless the device runs.
  void deliverSystem(AudioBufferList buffers);

  /// Hands this buffer to the engine's tap. Throws std::logic_error unless the engine runs with a
  /// tap.
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
