#ifndef LINXIPC_LINK_SESSION_PEER_H
#define LINXIPC_LINK_SESSION_PEER_H

#include <map>
#include <memory>

#include "link/session/backoff.h"
#include "link/session/session.h"

namespace linx::link {

/// A connection, by the number that the engine gave it. None is given twice.
enum class Connection : uint64_t {};

/*
 * The node behind one key: its connections as they come and go, the session that counts, and the names that are
 * sought there, anew in each session.
 *
 * One session is up at a time. While it is, another connection that the peer has dialled only greets; once its
 * session is up, it replaces the old one, which the peer must have lost. Where both sides dial at once and neither
 * session is up, the connection dialled by the side of the lower key stays, so that both sides choose the same.
 */
class Peer {
public:
    enum class Side { lower, higher };  ///< whose key comes first

    Peer(const Settings& settings, Side side, bool dials) : settings_(settings), side_(side), dials_(dials) {}

    // From the engine. `random` is fresh each time.
    void connected(Connection connection, bool dialledHere, uint64_t random, Time now);
    void arrived(Connection connection, const uint8_t* data, size_t size, uint64_t random, Time now);
    /// Also when a connection that was dialled could not be had.
    void disconnected(Connection connection, uint64_t random, Time now);
    void dialFailed(uint64_t random, Time now);
    void tick(uint64_t random, Time now);

    // To the engine.
    /// True once each time that a connection is to be made; connected() or dialFailed() answers it.
    bool wantsDial(Time now);
    std::optional<Bytes> nextFrame(Connection connection, Time now);
    /// A connection that has served: the engine sends what it has and closes it. disconnected() is not called for it.
    std::optional<Connection> toClose();
    Time deadline() const;

    // To and from this node.
    /// The session that is up; or null. Also null while there is still something to tell of the one before.
    Session* session();
    /// Whether one is on its way: it is dialled, again and again if need be, or a connection greets.
    bool isConnecting() const { return dials_ || current_; }
    /// From now on, in every session. False when there are too many names.
    bool seek(const Seek& seek);
    /// Events of its sessions, one session after the other.
    const Event* event() const;
    Event take();
    /// Ends the session and dials no more.
    void leave(Time latest);

private:
    struct Line {
        Line(Connection itsNumber, bool itsDialledHere, const Settings& settings, uint64_t nonce, Time now)
            : connection(itsNumber), isDialledHere(itsDialledHere), session(settings, nonce, now) {}

        Connection connection;
        bool isDialledHere;
        Session session;
    };
    struct Closing {
        Connection connection;
        std::optional<Bytes> farewell;
    };

    bool isPreferred(bool dialledHere) const { return dialledHere == (side_ == Side::lower); }
    void close(std::unique_ptr<Line>& line, Time now);
    void settle(uint64_t random, Time now);
    void begin();

    const Settings settings_;
    const Side side_;
    bool dials_;
    bool isDialling_ = false;
    Backoff backoff_;
    std::unique_ptr<Line> current_;
    std::unique_ptr<Line> rival_;  ///< greets while the current session is up
    std::deque<Closing> closing_;
    std::deque<Event> past_;  ///< what sessions that are gone had still to tell
    std::map<std::string, Seek> sought_;
    bool isBegun_ = false;  ///< the current session is up, and has been told what is sought
};

}  // namespace linx::link

#endif
