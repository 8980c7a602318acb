#ifndef LINXIPC_LINK_SESSION_LIVENESS_H
#define LINXIPC_LINK_SESSION_LIVENESS_H

#include <algorithm>

#include "link/session/events.h"

namespace linx::link {

/// When to let oneself be heard, and whether the other side is silent for too long.
class Liveness {
public:
    explicit Liveness(Time now) : seen_(now), heard_(now), sent_(now) {}

    void agree(Time tolerance, Time interval) {
        tolerance_ = tolerance;
        interval_ = interval;
    }

    /// To be called first whenever anything comes in: time in which this process was stopped is nobody's silence.
    void runs(Time now) {
        if (now - seen_ > 2 * interval_) heard_ += now - seen_;
        seen_ = now;
    }
    void heard(Time now) {
        heard_ = now;
        isDoubted_ = false;
    }
    void sent(Time now) { sent_ = now; }

    bool wantsPing(Time now) const { return now - sent_ >= interval_; }

    /// The first time that it is asked too late, what has come in and was not looked at yet gets its chance.
    bool isSilent(Time now) {
        if (now - heard_ < tolerance_) return false;
        const bool isSilent = isDoubted_;
        isDoubted_ = true;
        return isSilent;
    }
    Time deadline() const { return isDoubted_ ? seen_ : std::min(heard_ + tolerance_, sent_ + interval_); }

private:
    Time tolerance_ = std::chrono::seconds(30);
    Time interval_ = std::chrono::seconds(5);
    Time seen_;
    Time heard_;
    Time sent_;
    bool isDoubted_ = false;
};

}  // namespace linx::link

#endif
