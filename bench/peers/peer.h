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
};

/// What the processes of one run share, and what runs beside them. Made before they are forked, by the harness, which
/// destroys it after they have ended.
class Session {
public:
    virtual ~Session() = default;

    /// Called in process `self`, once.
    virtual std::unique_ptr<End> open(unsigned self) = 0;

    /// Processes whose work belongs to the conversation.
    virtual std::vector<pid_t> daemons() const { return {}; }
};

/// One way for processes to talk.
class Peer {
public:
    virtual ~Peer() = default;
    virtual std::string name() const = 0;

    /// Whether it leaves the processor to others while it waits.
    virtual bool blocks() const { return true; }

    /// Whether it can be asked for this.
    virtual bool takes(const Layout&) const { return true; }

    virtual std::unique_ptr<Session> begin(const Layout& layout) const = 0;
};

}  // namespace bench

#endif
