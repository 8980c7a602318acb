#include "tests/traffic/pulse.h"

namespace traffic {

Clock::duration Pulse::look(uint32_t beats, Clock::time_point now) {
    const Clock::duration stall = now - beatAt_;
    hasStopped_ = beats == beats_ && stall > longestPatience;
    if (beats != beats_) {
        beats_ = beats;
        beatAt_ = now;
    }
    return stall;
}

}  // namespace traffic
