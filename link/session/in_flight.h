#ifndef LINXIPC_LINK_SESSION_IN_FLIGHT_H
#define LINXIPC_LINK_SESSION_IN_FLIGHT_H

#include <map>

#include "link/session/outgoing.h"

namespace linx::link {

/// Frames that are on their way and not acknowledged, as many as the far side's window holds.
class InFlight {
public:
    void add(uint64_t sequence, size_t bytes, uint32_t channel, uint32_t signals) {
        frames_.push_back({sequence, bytes, channel, signals});
        bytes_ += bytes;
    }
    void acknowledged(uint64_t sequence) {
        for (; !frames_.empty() && frames_.front().sequence <= sequence; frames_.pop_front()) {
            bytes_ -= frames_.front().bytes;
        }
    }
    size_t bytes() const { return bytes_; }
    bool hasRoom(uint32_t window) const { return bytes_ + frameBytes <= window; }
    bool isEmpty() const { return frames_.empty(); }

    /// Signals that are in them, for each destination.
    std::map<uint32_t, uint64_t> signals() const {
        std::map<uint32_t, uint64_t> signals;
        for (const Frame& frame : frames_) {
            if (frame.signals != 0) signals[frame.channel] += frame.signals;
        }
        return signals;
    }

private:
    struct Frame {
        uint64_t sequence;
        size_t bytes;
        uint32_t channel;
        uint32_t signals;
    };

    std::deque<Frame> frames_;
    size_t bytes_ = 0;
};

}  // namespace linx::link

#endif
