#pragma once

#include "platform/AudioPlatform.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quenlor::test {

/// Uses a platform as a recorder does, and keeps what it delivers. Goes on whatever fails, so that
/// each call's failure can be seen by itself.
class ScriptedUse {
 public:
  explicit ScriptedUse(platform::AudioPlatform& usedPlatform) : platform(usedPlatform) {}

  /// Both sources, then one conversion.
  void setUp();
  void setUpMicrophone();
  void setUpSystem();

  /// Stops both sources and destroys what is there.
  void tearDown();

  struct Outcome {
    std::string call;
    bool succeeded;
    bool operator==(const Outcome&) const = default;
  };
  /// How the calls that can fail looked to the caller.
  std::vector<Outcome> outcomes;

  /// One list of samples for each buffer: an interleaved one's as they are, or one channel after
  /// the other. Written by the platform's threads.
  std::vector<std::vector<float>> systemBuffers;
  std::vector<std::vector<float>> microphoneBuffers;
  std::function<void()> onBuffer = [] {};

 private:
  void tryAccess();
  void tryEngine();
  void tryConversion();
  void getProperty(platform::AudioObjectID object, std::uint32_t selector, std::uint32_t scope,
                   platform::PropertyData& data);
  void note(const std::string& call, bool succeeded) { outcomes.push_back({call, succeeded}); }

  platform::AudioPlatform& platform;
  std::unique_ptr<platform::AudioEngine> engine;
  std::shared_ptr<platform::DispatchQueue> queue;
  std::unique_ptr<platform::DispatchTimer> timer;
  platform::AudioObjectID tap = 0;
  platform::AudioObjectID device = 0;
  platform::AudioDeviceIOProcID ioProc{};
};

}  // namespace quenlor::test
