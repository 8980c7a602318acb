#include "tests/calls/director.h"

#include <time.h>

#include <cerrno>

namespace calls {
namespace {

using Kind = Decision::Kind;

constexpr uint32_t longestStorm = 5;  ///< so many times in a row an interruption goes on to befall a process

void delay() {
    const timespec moment = {0, 2000000};
    nanosleep(&moment, nullptr);
}

bool isInterruption(int error) {
    return error == EINTR || error == EAGAIN;
}

}  // namespace

bool Fault::kills() const {
    return deed == Deed::killBefore || deed == Deed::killAfter || deed == Deed::stopBefore || deed == Deed::stopAfter;
}

bool Fault::stops() const {
    return deed == Deed::stopBefore || deed == Deed::stopAfter || deed == Deed::pauseBefore ||
           deed == Deed::pauseAfter;
}

Decision Director::decide(const Call& call) {
    if (!call.done) begin(call);
    if (line_ == nullptr) return {};
    if (isSite_) return decideAtSite(call.done);
    const bool goesOn = fault_.deed == Deed::failOn && reached_ && line_->mayAnswer(fault_.error);
    if (!goesOn || (isInterruption(fault_.error) && !call.done && ++interruptions_ > longestStorm)) return {};
    return failure(call.done);
}

void Director::begin(const Call& call) {
    line_ = lineOf(call);
    if (line_ == nullptr) {
        unknown_.push_back(call.number);
        return;
    }
    calls_.push_back(line_);
    isSite_ = line_ == fault_.site.call && ++seen_ == fault_.site.nth;
}

Decision Director::decideAtSite(bool done) {
    reached_ = true;
    switch (fault_.deed) {
        case Deed::nothing:
            break;
        case Deed::killBefore:
        case Deed::stopBefore:
        case Deed::pauseBefore:
            return done ? Decision() : Decision{Kind::stand, 0};
        case Deed::killAfter:
        case Deed::stopAfter:
        case Deed::pauseAfter:
            return done ? Decision{Kind::stand, 0} : Decision();
        case Deed::delay:
            delay();
            break;
        case Deed::fail:
        case Deed::failOn:
            return failure(done);
    }
    return {};
}

/// The call is not made, and fails; or it is, and says that it has failed.
Decision Director::failure(bool done) {
    if (done != line_->isDoneNevertheless()) return {};
    refusedRemoval_ = refusedRemoval_ || line_->isRemoval();
    return {Kind::fail, fault_.error};
}

}  // namespace calls
