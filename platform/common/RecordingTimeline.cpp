#include "platform/common/RecordingTimeline.h"

namespace quenlor::platform {

void RecordingTimeline::follow(const SourceClock& clock, double frame, double position,
                               double framesPerSecond) {
  leader = &clock;
  leadersRate = framesPerSecond;
  leadersFrame = frame;
  positionThen = position;
}

void RecordingTimeline::release(Clock::time_point time, double position) {
  leader = nullptr;
  since = time;
  positionThen = position;
}

double RecordingTimeline::positionAt(Clock::time_point time) const {
  if (leader != nullptr)
    return positionThen + (leader->frameAt(time) - leadersFrame) * recordedRate / leadersRate;
  return positionThen + std::chrono::duration<double>(time - since).count() * recordedRate;
}

double RecordingTimeline::rate() const {
  return leader != nullptr ? recordedRate * leader->rate() / leadersRate : recordedRate;
}

}  // namespace quenlor::platform
