#pragma once

#include "platform/AudioEngine.h"
#include "platform/virtual/CallLedger.h"
#include "platform/virtual/StreamDriver.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace quenlor::platform::virtualhost {

/// The microphone's engine. One engine delivers at a time: the last one that was started.
class VirtualEngine final : public AudioEngine {
 public:
  /// The driver and the ledger outlive the engine. Without a format there is no input.
  VirtualEngine(StreamDriver& streamDriver, CallLedger& callLedger,
                std::optional<AudioFormat> deviceFormat);
  ~VirtualEngine() override;

  AudioFormat inputFormat(std::uint32_t bus) override;
  void installTap(std::uint32_t bus, std::uint32_t bufferSize, const AudioFormat& tapFormat,
                  TapBlock block) override;
  void removeTap(std::uint32_t bus) override;
  void prepare() override;
  void start() override;
  bool isRunning() const override;
  void stop() override;

 private:
  void noteWrongBus(std::uint32_t bus, const std::string& caller);
  void dropTap();

  StreamDriver& driver;
  CallLedger& ledger;
  const std::optional<AudioFormat> format;
  std::shared_ptr<const TapBlock> tap;
  bool running = false;
};

}  // namespace quenlor::platform::virtualhost
