#ifndef LINXIPC_LINK_SESSION_SESSION_H
#define LINXIPC_LINK_SESSION_SESSION_H

#include "link/session/greeting.h"
#include "link/session/in_flight.h"
#include "link/session/incoming.h"
#include "link/session/liveness.h"

namespace linx::link {

/// What is seen of a session from outside.
struct Counts {
    uint64_t framesIn = 0;
    uint64_t framesOut = 0;
    uint64_t foreignTags = 0;    ///< frames of other sessions, dropped
    uint64_t doubled = 0;        ///< frames that had come before, dropped
    uint64_t strays = 0;         ///< signals that came for endpoints which had ended
    uint64_t undeliverable = 0;  ///< signals that waited for endpoints which then ended over there
    uint64_t loops = 0;          ///< hunts that had passed this node before
    Time roundTrip = {};         ///< of the last sign of life that could be measured; 0 before
};

/*
 * One session over one connection, as a state machine without a clock, a socket or a thread: whatever happens is told
 * to it by a call, with the time, and what it wants is asked for.
 *
 *     greeting ----> up ----> ended        on anything unexpected, at once; it is never repaired or taken up again
 *
 * Who drives it: hands it each frame that arrives; then takes its events while it can; then asks for frames while the
 * engine takes them; and calls tick() when the deadline has come. Before tick() all that has arrived must be handed
 * in, or a peer that lives may count as silent.
 */
class Session {
public:
    enum class State { greeting, up, ended };

    /// `nonce` is random, and never used for another session.
    Session(const Settings& settings, uint64_t nonce, Time now);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // From and to the engine.
    void arrived(const uint8_t* data, size_t size, Time now);
    /// The next frame to carry. Whoever takes it has to carry it: the far side ends the session for a gap.
    std::optional<Bytes> nextFrame(Time now);
    void tick(Time now);
    Time deadline();
    void disconnected() { end(End::disconnected); }
    /// Ends it when all that was taken has arrived over there, or at `latest`.
    void leave(Time latest) { leaving_ = latest; }
    /// Ends it now, with a word to the far side.
    void end(End reason);

    State state() const { return state_; }
    const std::optional<Terms>& terms() const { return greeting_.terms(); }

    // To and from this node. All of it only while the session is up.
    std::optional<OwnId> announce(const std::string& name, uint32_t credit = usualCredit);
    void ended(OwnId id) { own_.end(id); }
    /// False when no more may be sought in this session.
    bool seek(const Seek& seek);
    void refuse(const Refusal& refusal);
    Sent send(FarId to, OwnId from, uint32_t number, Bytes&& payload);
    /// The destination has done with a signal of so many bytes: its block came home, or was never handed on.
    void consumed(OwnId at, size_t payload) { own_.consumed(at, payload); }

    /// What is to be told next. A user that cannot take it now leaves it; what is behind it waits too.
    const Event* event() const { return incoming_.event(); }
    Event take() { return incoming_.take(); }

    /// All is on its way and acknowledged.
    bool isAtRest() const { return notes_.empty() && outgoing_.isEmpty() && inFlight_.isEmpty(); }
    Counts counts() const;
    /// Bytes that it holds: of signals that wait here, and of frames that came and were not taken.
    size_t bytesOut() const { return outgoing_.bytes(); }
    size_t bytesIn() const { return incoming_.bytes(); }
    /// Bytes that are on their way and not acknowledged.
    size_t bytesInFlight() const { return inFlight_.bytes(); }
    std::vector<Outgoing::Queued> queued() const { return outgoing_.queued(); }

private:
    void greet(const FrameView& frame, Time now);
    bool handle(const FrameView& frame, Time now);
    bool handleReady();
    bool handleBye(const FrameView& frame);
    bool handlePing(const FrameView& frame, Time now);
    bool handleAcknowledgement(const FrameView& frame);
    bool handleCredit(const FrameView& frame);
    bool handleSeek(const FrameView& frame);
    bool handleAnnouncement(const FrameView& frame);
    bool handleEnd(const FrameView& frame);

    std::optional<Bytes> urgentFrame(Time now);
    std::optional<Bytes> farewell();
    Bytes pingFrame(Time now);
    Bytes seal(Bytes frame, Type type, uint32_t channel, uint8_t flags = 0);
    Bytes sealNote();
    Bytes numberFrame(Type type, uint32_t channel, uint64_t number);
    std::vector<Loss> losses() const;

    const NodeId node_;
    const Time tolerance_;
    const Time greetingEnds_;
    State state_ = State::greeting;
    End reason_ = End::bye;
    bool farewellDue_ = false;
    std::optional<Time> leaving_;
    Greeting greeting_;
    Liveness liveness_;
    Notes notes_;
    OwnEndpoints own_{notes_};
    Outgoing outgoing_{own_};
    Incoming incoming_{own_, outgoing_};
    InFlight inFlight_;
    uint64_t nextIn_ = 1;
    uint64_t nextOut_ = 1;
    size_t seeksIn_ = 0;
    size_t seeksOut_ = 0;
    std::optional<uint32_t> stamp_;  ///< of the last ping that arrived
    Time stamped_ = {};
    Counts counts_;
};

}  // namespace linx::link

#endif
