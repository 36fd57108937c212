#pragma once

#include "platform/common/PlanarFrames.h"
#include "platform/common/RecordingTimeline.h"
#include "platform/common/SourceClock.h"
#include "platform/common/StreamResampler.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace quenlor::platform {

/// Brings one source onto the timeline of a recording: what comes from its device leaves at the
/// recording's rate, each frame at the position at which it sounded.
///
/// The lane that leads is resampled by a fixed ratio, or not at all, and the timeline follows its
/// clock. The other is resampled by a ratio that keeps it in place on the timeline: that takes out
/// the drift between both devices' clocks.
///
/// A run of frames is placed as a whole, once the clock has settled. Until then it waits. Where it
/// begins later than the run before it ended, silence fills the gap; where it begins earlier, the
/// overlap is dropped.
///
/// Used by one thread at a time.
class CaptureLane {
 public:
  using Clock = SourceClock::Clock;

  struct Form {
    double rate = 0;
    /// Of each frame that comes. The first two are recorded.
    std::uint32_t channels = 0;
    bool leads = false;
  };

  /// Takes frames in order of time, at the recording's rate; lent for the call.
  using Receiver = std::function<void(const PlanarFrames& frames, std::size_t count)>;

  /// Throws PlatformError where there is no resampler for the form.
  CaptureLane(RecordingTimeline& recordingTimeline, const Form& laneForm, Receiver frameReceiver);

  /// What it has not handed over is lost.
  ~CaptureLane();
  CaptureLane(const CaptureLane&) = delete;
  CaptureLane& operator=(const CaptureLane&) = delete;

  /// Takes samples from the device, the channels interleaved. Those that are not finite become 0.
  void append(std::span<const float> samples);

  /// Takes frames of which the server says that it lost them.
  void appendSilence(std::size_t frames);

  /// By that time the device had heard all that came, and so many frames more.
  void observe(Clock::time_point time, double framesToCome);

  /// Some frames may be missing between those that came and those that will come.
  void interrupt();

  /// Places and converts what has come. To be called after each serving of the server. A lane that
  /// brings nothing times out, but not while the server is known to be catching up.
  void advance(Clock::time_point now, bool isServerCatchingUp);

  /// Whether what came since the last advance() is far behind the time and came faster than it
  /// sounded, so that the server still has more of all sources.
  bool isCatchingUp(Clock::time_point now) const;

  /// Whether frames come that have a place in the recording. Where they do not, silence may take
  /// it.
  bool hasRun() const { return isPlaced; }

  /// Whether nothing has come for so long that nothing is to be waited for.
  bool hasTimedOut() const;

  /// Whether its clock is being learnt, so that observations should be made as often as possible.
  bool isSettling() const;

  /// How long after an observation the next one should be made.
  Clock::duration observationInterval() const;

  /// Whether nothing is to be waited for that belongs before that position.
  bool hasAllUntil(std::int64_t position) const;

  /// The position after the last frame that is ready.
  std::int64_t end() const { return begin + static_cast<std::int64_t>(ready.size()); }

  /// Puts silence where frames are missing before that position.
  void fillUntil(std::int64_t position);

  /// Hands over all frames before that position, which is at most end().
  void deliverUntil(std::int64_t position);

  /// Hands over what sounded before that position, which is the end of the recording.
  void finishAt(std::int64_t position);

  /// By which fraction the resampling departs from the nominal rates.
  double correction() const { return ratio / nominalRatio - 1; }

  /// How much silence was put in for lost time, in frames at the recording's rate.
  std::int64_t framesLost() const { return lost; }

 private:
  void place();
  void endRun();
  void release();
  void convert();
  void steer();
  void makeResampler();
  void resample(const PlanarFrames& input, std::size_t most);
  double firstWaiting() const;
  double endOfReceived() const;

  RecordingTimeline& timeline;
  const Form form;
  const Receiver receiver;
  SourceClock clock;
  // Frames of the device that came, in all, by now and by the last advance(); and the last of
  // these, which are not converted yet.
  std::int64_t received = 0;
  std::int64_t receivedBefore = 0;
  PlanarFrames waiting;
  std::optional<StreamResampler> resampler;
  // Frames of the device that make one at the recording's rate, and the one that will make the
  // next.
  const double nominalRatio;
  double ratio;
  double nextFrame = 0;
  // The first of the run.
  double placedFrame = 0;
  // Converted frames from position begin on.
  PlanarFrames ready;
  std::int64_t begin = 0;
  std::int64_t lost = 0;
  // For how long nothing has come while the server was served.
  Clock::duration quietTime{};
  Clock::time_point lastAdvance;
  bool isPlaced = false;
  bool wasPlaced = false;
};

}  // namespace quenlor::platform
