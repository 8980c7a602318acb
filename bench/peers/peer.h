#ifndef LINXIPC_BENCH_PEERS_PEER_H
#define LINXIPC_BENCH_PEERS_PEER_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/harness/placement.h"
#include "bench/peers/end.h"

namespace bench {

/// Who talks to whom among the processes 0, 1, ... of a run.
enum class Pattern {
    roundTrip,  ///< 1 asks 0, which answers
    fanIn,      ///< all others send to 0
    chain,      ///< each sends to the one before it, and 0 to the last
};

struct Layout {
    Pattern pattern;
    unsigned processes;
    std::size_t payload;
    Placement placement;
    std::string directory;  ///< for sockets and the like; removed after the run

    unsigned receiverOf(unsigned process) const {
        return pattern == Pattern::chain ? (process + processes - 1) % processes : 0;
    }

    /// Whom all messages of `process` reach, its answers too.
    unsigned reachedBy(unsigned process) const {
        return pattern == Pattern::roundTrip ? 1 - process : receiverOf(process);
    }

    /// Whose messages reach `process`.
    std::vector<unsigned> sendersTo(unsigned process) const {
        std::vector<unsigned> senders;
        for (unsigned sender = 0; sender < processes; ++sender) {
            if (sender != process && reachedBy(sender) == process) senders.push_back(sender);
        }
        return senders;
    }
};

/// What the processes of one run share, made before they are forked and destroyed after they have ended. A peer that
/// shares more than the layout, or cannot do everything, has one of its own.
struct Session {
    explicit Session(const Layout& chosen) : layout(chosen) {}
    virtual ~Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Whether the peer leaves the processor to others while it waits.
    static constexpr bool blocks = true;

    /// Whether the machine has what the peer needs when it runs.
    static bool runsHere() { return true; }

    /// Whether it can be asked for this.
    static bool takes(const Layout&) { return true; }

    Layout layout;
    std::vector<pid_t> daemons;  ///< processes whose work belongs to the conversation
};

/// One way for processes to talk.
struct Peer {
    const char* name;
    bool blocks;
    bool (*runsHere)();
    bool (*takes)(const Layout&);
    std::unique_ptr<Session> (*begin)(const Layout&);
    std::unique_ptr<End> (*open)(Session&, unsigned self);  ///< called in process `self`, once
};

/// The peer whose processes talk through an `EndType` each, made of the session and the process's number.
template <class EndType, class SessionType = Session>
constexpr Peer peerOf(const char* name) {
    return {name,
            SessionType::blocks,
            SessionType::runsHere,
            SessionType::takes,
            [](const Layout& layout) -> std::unique_ptr<Session> { return std::make_unique<SessionType>(layout); },
            [](Session& session, unsigned self) -> std::unique_ptr<End> {
                return std::make_unique<EndType>(static_cast<SessionType&>(session), self);
            }};
}

}  // namespace bench

#endif
