#ifndef LINXIPC_LINK_SESSION_INCOMING_H
#define LINXIPC_LINK_SESSION_INCOMING_H

#include "link/session/outgoing.h"

namespace linx::link {

/// What has come from the far side: put together, told in order, and acknowledged when it was taken. What nobody
/// takes keeps its part of the window, so the far side stops before this one holds more than a window and the
/// partials.
class Incoming {
public:
    Incoming(OwnEndpoints& own, const Outgoing& far) : own_(own), far_(far) {}

    void agree(uint32_t window) { window_ = window; }

    /// The next frame is here, in order. False when it does not fit into the window.
    bool arrived(uint64_t sequence, const Header& header, Time now);
    /// Its signals; false for what no link sends.
    bool takeSignals(const FrameView& frame);
    bool takeFragment(const FrameView& frame);

    /// To be told after what was told before.
    void tell(Event event);
    /// The session is over: what was not taken is the sender's loss, which it counts. Only this is left to tell,
    /// and nothing to a user who does not know yet that it had begun.
    void tellAtLast(Down down);

    const Event* event() const { return events_.empty() ? nullptr : &events_.front().event; }
    Event take();

    /// What the far side is to be told now: every frame up to this one was taken.
    std::optional<uint64_t> dueAcknowledgement(Time now);
    /// When there will be something to tell, if nothing comes before.
    std::optional<Time> deadline();

    /// Signals for endpoints that had ended.
    uint64_t strays() const { return strays_; }
    size_t bytes() const { return unacknowledgedBytes_; }

private:
    struct Told {
        uint64_t sequence;
        Event event;
    };
    struct Frame {
        uint64_t sequence;
        size_t bytes;
        Time arrived;
    };

    bool begin(OwnId to, Reader& body);
    bool dropStray(OwnId to, Reader& body);
    uint64_t taken() const { return events_.empty() ? sequence_ : events_.front().sequence - 1; }
    void lookAtTaken();

    OwnEndpoints& own_;
    const Outgoing& far_;
    uint32_t window_ = 0;
    uint64_t sequence_ = 0;
    std::deque<Told> events_;
    std::deque<Frame> unacknowledged_;  ///< frames that fill the window
    size_t unacknowledgedBytes_ = 0;
    size_t takenFrames_ = 0;  ///< of these, from the first
    size_t takenBytes_ = 0;
    uint64_t strays_ = 0;
};

}  // namespace linx::link

#endif
