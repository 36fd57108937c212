#include "platform/virtual/VirtualPlatform.h"

#include "platform/ForwardingPlatform.h"
#include "platform/common/SoxrConverter.h"
#include "platform/virtual/VirtualEngine.h"

#include <exception>
#include <stdexcept>
#include <utility>

namespace quenlor::platform::virtualhost {

namespace {

/// Wraps the object in a shared pointer that notifies the ledger when the last owner releases it.
template <typename Object>
std::shared_ptr<Object> counted(std::shared_ptr<Object> object, ObjectKind kind,
                                const std::shared_ptr<CallLedger>& ledger) {
  ledger->noteCreated(kind);
  Object* const address = object.get();
  return std::shared_ptr<Object>(address,
                                 [object = std::move(object), kind, ledger](Object*) mutable {
                                   object.reset();
                                   ledger->noteDestroyed(kind);
                                 });
}

class CountedTimer final : public ForwardingTimer {
 public:
  CountedTimer(std::unique_ptr<DispatchTimer> timer, std::shared_ptr<CallLedger> callLedger)
      : ForwardingTimer(std::move(timer)), ledger(std::move(callLedger)) {
    ledger->noteCreated(ObjectKind::timer);
  }
  ~CountedTimer() override { ledger->noteDestroyed(ObjectKind::timer); }

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds leeway) override {
    ledger->record("schedule(" + std::to_string(delay.count()) + ',' +
                   std::to_string(interval.count()) + ',' + std::to_string(leeway.count()) + ')');
    ForwardingTimer::schedule(delay, interval, leeway);
  }

 private:
  const std::shared_ptr<CallLedger> ledger;
};

class CountedConverter final : public ForwardingConverter {
 public:
  CountedConverter(std::shared_ptr<AudioConverter> converter,
                   std::shared_ptr<CallLedger> callLedger)
      : ForwardingConverter(std::move(converter)), ledger(std::move(callLedger)) {
    ledger->noteCreated(ObjectKind::converter);
  }
  ~CountedConverter() override { ledger->noteDestroyed(ObjectKind::converter); }

  ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                const InputBlock& input) override {
    if (ledger->attemptUnlisted("convert") == kAudioHardwareNoError)
      return ForwardingConverter::convert(output, error, input);
    error = std::make_exception_ptr(PlatformError("The virtual converter failed."));
    return ConverterOutputStatus::error;
  }

 private:
  const std::shared_ptr<CallLedger> ledger;
};

std::optional<AudioFormat> formatOf(const std::optional<DeviceSettings>& device) {
  if (!device) return std::nullopt;
  return device->format();
}

}  // namespace

VirtualPlatform::VirtualPlatform(std::shared_ptr<Pace> drivingPace, const VirtualSettings& settings)
    : pace(std::move(drivingPace)),
      microphoneFormat(formatOf(settings.microphone)),
      driver(*pace, settings),
      virtualHardware(driver, *callLedger, settings),
      virtualCaptureDevice(*callLedger, settings) {}

VirtualPlatform::~VirtualPlatform() = default;

std::unique_ptr<AudioEngine> VirtualPlatform::makeEngine() {
  if (callLedger->attempt("makeEngine") != kAudioHardwareNoError)
    throw PlatformError("The virtual host failed to make an engine.");
  return std::make_unique<VirtualEngine>(driver, *callLedger, microphoneFormat);
}

std::shared_ptr<DispatchQueue> VirtualPlatform::makeQueue(const std::string& label) {
  callLedger->record("makeQueue");
  return counted(pace->makeQueue(label), ObjectKind::queue, callLedger);
}

std::unique_ptr<DispatchTimer> VirtualPlatform::makeTimer(std::shared_ptr<DispatchQueue> queue) {
  callLedger->record("makeTimer");
  return std::make_unique<CountedTimer>(pace->makeTimer(std::move(queue)), callLedger);
}

std::optional<AudioFormat> VirtualPlatform::makeFormat(
    const AudioStreamBasicDescription& description) {
  if (callLedger->attempt("makeFormat") != kAudioHardwareNoError) return std::nullopt;
  return AudioFormat::fromStreamDescription(description);
}

std::shared_ptr<PCMBuffer> VirtualPlatform::makeBuffer(const AudioFormat& format,
                                                       std::uint32_t frameCapacity) {
  if (callLedger->attemptUnlisted("makeBuffer") != kAudioHardwareNoError) return nullptr;
  std::shared_ptr<PCMBuffer> buffer = PCMBuffer::create(format, frameCapacity);
  if (!buffer) return nullptr;
  return counted(std::move(buffer), ObjectKind::buffer, callLedger);
}

std::shared_ptr<AudioConverter> VirtualPlatform::makeConverter(const AudioFormat& from,
                                                               const AudioFormat& to) {
  if (callLedger->attempt("makeConverter") != kAudioHardwareNoError) return nullptr;
  std::shared_ptr<AudioConverter> converter = makeSoxrConverter(from, to);
  if (!converter) return nullptr;
  return std::make_shared<CountedConverter>(std::move(converter), callLedger);
}

std::chrono::system_clock::time_point VirtualPlatform::currentTime() {
  callLedger->record("currentTime");
  return pace->currentTime();
}

void VirtualPlatform::deliverSystem(AudioBufferList buffers) {
  if (!driver.deliverSystem(buffers)) throw std::logic_error("No IO block is running.");
}

void VirtualPlatform::deliverMicrophone(std::shared_ptr<PCMBuffer> buffer) {
  if (!driver.deliverMicrophone(std::move(buffer))) throw std::logic_error("No tap is running.");
}

}  // namespace quenlor::platform::virtualhost
