#pragma once

#include "platform/ForwardingPlatform.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace quenlor::test {

/// Passes every call on to another host. Keeps the tap's block, as a host that is slow to release
/// it, and runs a test's code in the calls that end capture.
class WatchedPlatform final : public platform::ForwardingPlatform {
 public:
  explicit WatchedPlatform(platform::AudioPlatform& watched)
      : ForwardingPlatform(watched), watchedHardware(watched.hardware(), onStopDevice) {}

  platform::AudioHardware& hardware() override { return watchedHardware; }
  std::unique_ptr<platform::AudioEngine> makeEngine() override {
    return std::make_unique<Engine>(ForwardingPlatform::makeEngine(), *this);
  }

  platform::AudioEngine::TapBlock tapBlock;
  /// Each is called first thing in the function that it is named after.
  std::function<void()> onRemoveTap = [] {}, onStopDevice = [] {};

 private:
  struct Hardware final : platform::ForwardingHardware {
    Hardware(AudioHardware& watched, const std::function<void()>& onStopDevice)
        : ForwardingHardware(watched), onStop(onStopDevice) {}
    platform::OSStatus stopDevice(platform::AudioObjectID deviceID,
                                  platform::AudioDeviceIOProcID ioProcID) override {
      onStop();
      return ForwardingHardware::stopDevice(deviceID, ioProcID);
    }
    const std::function<void()>& onStop;
  };

  struct Engine final : platform::ForwardingEngine {
    Engine(std::unique_ptr<AudioEngine> watched, WatchedPlatform& platform)
        : ForwardingEngine(std::move(watched)), host(platform) {}
    void installTap(std::uint32_t bus, std::uint32_t bufferSize,
                    const platform::AudioFormat& format, TapBlock block) override {
      host.tapBlock = block;
      ForwardingEngine::installTap(bus, bufferSize, format, std::move(block));
    }
    void removeTap(std::uint32_t bus) override {
      host.onRemoveTap();
      ForwardingEngine::removeTap(bus);
    }
    WatchedPlatform& host;
  };

  Hardware watchedHardware;
};

}  // namespace quenlor::test
