#pragma once

#include "AudioTapSession.h"
#include "platform/ForwardingPlatform.h"
#include "platform/virtual/ManualClock.h"
#include "platform/virtual/VirtualPlatform.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaveFile.h"

#include <exception>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace quenlor::test {

using platform::virtualhost::CallLedger;
using platform::virtualhost::DeviceSettings;
using platform::virtualhost::ManualClock;
using platform::virtualhost::ObjectKind;
using platform::virtualhost::Signal;
using platform::virtualhost::VirtualPlatform;
using platform::virtualhost::VirtualSettings;

/// A session on the virtual host, whose time goes on only where a test says so.
class SessionFixture : public testing::Test {
 protected:
  /// Devices that already have the target format and deliver only what a test hands over, so that
  /// samples reach the mix as they are.
  static VirtualSettings exactDevices();

  /// A planar 48 kHz buffer of two channels, equally long.
  static std::shared_ptr<platform::PCMBuffer> stereoBuffer(const std::vector<float>& left,
                                                           const std::vector<float>& right);

  /// Without a pace of its own, the platform goes by the clock.
  void makePlatform(const VirtualSettings& settings,
                    const std::shared_ptr<platform::virtualhost::Pace>& pace = nullptr);
  /// Makes a session on the platform, or on one that forwards to it.
  void makeSessionOn(platform::AudioPlatform& host, const std::string& mode = "mixed");
  /// Makes the platform and a session on it.
  void makeSession(const VirtualSettings& settings, const std::string& mode = "mixed");

  void deliverSystem(const std::vector<float>& left, const std::vector<float>& right);
  void deliverSystem(const std::vector<float>& samples) { deliverSystem(samples, samples); }
  void deliverMicrophone(const std::vector<float>& left, const std::vector<float>& right);
  void deliverMicrophone(const std::vector<float>& samples) { deliverMicrophone(samples, samples); }
  /// No system buffers at all, which is a failure.
  void deliverBadLayout() { platform->deliverSystem({}); }
  void tick() { clock->advance(AudioTapSession::mixInterval); }

  CallLedger& ledger() { return *platform->ledger(); }
  bool fileExists() const { return std::filesystem::exists(path); }
  WaveFile recording() const { return readWaveFile(path); }

  /// Gives the output file a second name, under which its content outlives a discard.
  std::filesystem::path linkToRecording() const;

  /// Expects nothing of the host's to be alive, once the session is gone, and no call misused.
  void expectEverythingReleased();

  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "recording.wav";
  const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::unique_ptr<VirtualPlatform> platform;
  std::shared_ptr<AudioTapSession> session;
};

/// Passes everything on to another host but conversions, which are a test's own.
class ConvertingPlatform final : public platform::ForwardingPlatform {
 public:
  using ForwardingPlatform::ForwardingPlatform;
  std::shared_ptr<platform::AudioConverter> makeConverter(
      const platform::AudioFormat& from, const platform::AudioFormat& to) override {
    if (!ForwardingPlatform::makeConverter(from, to)) return nullptr;
    return std::make_shared<Converter>(*this);
  }

  std::function<platform::ConverterOutputStatus(platform::PCMBuffer& output,
                                                std::exception_ptr& error,
                                                const platform::AudioConverter::InputBlock& input)>
      convert;

 private:
  struct Converter final : platform::AudioConverter {
    explicit Converter(const ConvertingPlatform& convertingHost) : host(convertingHost) {}
    platform::ConverterOutputStatus convert(platform::PCMBuffer& output, std::exception_ptr& error,
                                            const InputBlock& input) override {
      return host.convert(output, error, input);
    }
    const ConvertingPlatform& host;
  };
};

/// The description of the error that action throws; empty where it throws none.
std::string errorOf(const std::function<void()>& action);

}  // namespace quenlor::test
