#pragma once

#include "platform/AudioPlatform.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

// Hosts that pass every call on to another one. Derive from one of these classes and override the
// calls to change. A target is called on the same threads as the class that forwards to it.

namespace quenlor::platform {

/// Forwards to a platform that outlives it.
class ForwardingPlatform : public AudioPlatform {
 public:
  explicit ForwardingPlatform(AudioPlatform& targetPlatform) : target(targetPlatform) {}

  AudioHardware& hardware() override { return target.hardware(); }
  CaptureDevice& captureDevice() override { return target.captureDevice(); }
  std::unique_ptr<AudioEngine> makeEngine() override { return target.makeEngine(); }
  std::shared_ptr<DispatchQueue> makeQueue(const std::string& label) override {
    return target.makeQueue(label);
  }
  std::unique_ptr<DispatchTimer> makeTimer(std::shared_ptr<DispatchQueue> queue) override {
    return target.makeTimer(std::move(queue));
  }
  std::optional<AudioFormat> makeFormat(const AudioStreamBasicDescription& description) override {
    return target.makeFormat(description);
  }
  std::shared_ptr<PCMBuffer> makeBuffer(const AudioFormat& format,
                                        std::uint32_t frameCapacity) override {
    return target.makeBuffer(format, frameCapacity);
  }
  std::shared_ptr<AudioConverter> makeConverter(const AudioFormat& from,
                                                const AudioFormat& to) override {
    return target.makeConverter(from, to);
  }
  std::chrono::system_clock::time_point currentTime() override { return target.currentTime(); }

 private:
  AudioPlatform& target;
};

/// Forwards to hardware that outlives it.
class ForwardingHardware : public AudioHardware {
 public:
  explicit ForwardingHardware(AudioHardware& targetHardware) : target(targetHardware) {}

  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tapID) override {
    return target.createProcessTap(description, tapID);
  }
  OSStatus destroyProcessTap(AudioObjectID tapID) override {
    return target.destroyProcessTap(tapID);
  }
  OSStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                 AudioObjectID& deviceID) override {
    return target.createAggregateDevice(description, deviceID);
  }
  OSStatus destroyAggregateDevice(AudioObjectID deviceID) override {
    return target.destroyAggregateDevice(deviceID);
  }
  OSStatus getPropertyData(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                           PropertyData& data) override {
    return target.getPropertyData(objectID, address, data);
  }
  OSStatus setPropertyData(AudioObjectID objectID, const AudioObjectPropertyAddress& address,
                           const PropertyData& data) override {
    return target.setPropertyData(objectID, address, data);
  }
  OSStatus createIOProcID(AudioObjectID deviceID, std::shared_ptr<DispatchQueue> queue,
                          IOBlock block, AudioDeviceIOProcID& ioProcID) override {
    return target.createIOProcID(deviceID, std::move(queue), std::move(block), ioProcID);
  }
  OSStatus destroyIOProcID(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override {
    return target.destroyIOProcID(deviceID, ioProcID);
  }
  OSStatus startDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override {
    return target.startDevice(deviceID, ioProcID);
  }
  OSStatus stopDevice(AudioObjectID deviceID, AudioDeviceIOProcID ioProcID) override {
    return target.stopDevice(deviceID, ioProcID);
  }

 private:
  AudioHardware& target;
};

/// Forwards to a capture device that outlives it.
class ForwardingCaptureDevice : public CaptureDevice {
 public:
  explicit ForwardingCaptureDevice(CaptureDevice& targetDevice) : target(targetDevice) {}

  AuthorizationStatus authorizationStatus() override { return target.authorizationStatus(); }
  void requestAccess(std::function<void(bool granted)> completion) override {
    target.requestAccess(std::move(completion));
  }
  std::optional<std::string> defaultDevice() override { return target.defaultDevice(); }

 private:
  CaptureDevice& target;
};

/// Owns the engine that it forwards to.
class ForwardingEngine : public AudioEngine {
 public:
  explicit ForwardingEngine(std::unique_ptr<AudioEngine> targetEngine)
      : target(std::move(targetEngine)) {}

  AudioFormat inputFormat(std::uint32_t bus) override { return target->inputFormat(bus); }
  void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& format,
                  TapBlock block) override {
    target->installTap(bus, bufferSize, format, std::move(block));
  }
  void removeTap(std::uint32_t bus) override { target->removeTap(bus); }
  void prepare() override { target->prepare(); }
  void start() override { target->start(); }
  bool isRunning() const override { return target->isRunning(); }
  void stop() override { target->stop(); }

 private:
  std::unique_ptr<AudioEngine> target;
};

/// Shares the converter that it forwards to.
class ForwardingConverter : public AudioConverter {
 public:
  explicit ForwardingConverter(std::shared_ptr<AudioConverter> targetConverter)
      : target(std::move(targetConverter)) {}

  ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                const InputBlock& input) override {
    return target->convert(output, error, input);
  }

 private:
  std::shared_ptr<AudioConverter> target;
};

/// Owns the timer that it forwards to.
class ForwardingTimer : public DispatchTimer {
 public:
  explicit ForwardingTimer(std::unique_ptr<DispatchTimer> targetTimer)
      : target(std::move(targetTimer)) {}

  void schedule(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                std::chrono::nanoseconds leeway) override {
    target->schedule(delay, interval, leeway);
  }
  void setEventHandler(Handler handler) override { target->setEventHandler(std::move(handler)); }
  void resume() override { target->resume(); }
  void cancel() override { target->cancel(); }

 private:
  std::unique_ptr<DispatchTimer> target;
};

}  // namespace quenlor::platform
