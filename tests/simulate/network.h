#ifndef LINXIPC_TESTS_SIMULATE_NETWORK_H
#define LINXIPC_TESTS_SIMULATE_NETWORK_H

#include <array>
#include <deque>
#include <functional>
#include <map>

#include "link/session/peer.h"
#include "tests/simulate/trace.h"
#include "tests/simulate/weather.h"

namespace simulate {

using linx::link::Bytes;
using linx::link::Connection;
using linx::link::Time;

/// What a network does to nodes. Each is called when it is due and the node runs.
class Station {
public:
    virtual ~Station() = default;
    virtual bool runs() const = 0;
    virtual void connected(int peer, Connection connection, bool dialledHere) = 0;
    virtual void dialFailed(int peer) = 0;
    virtual void arrived(int peer, Connection connection, const Bytes& frame) = 0;
    virtual void disconnected(int peer, Connection connection) = 0;
};

/// Connections between nodes, which carry frames in order and without loss: unless the weather is bad.
class Network {
public:
    Network(Random& random, const Weather& weather, Trace& trace)
        : random_(random), weather_(weather), trace_(trace) {}

    void dial(int from, int to, Time now);
    bool hasRoom(int from, Connection connection) const;
    void send(int from, Connection connection, Bytes frame, Time now);
    void close(int from, Connection connection, Time now);

    /// Calls the stations with all that has come to them by now.
    void deliver(const std::vector<Station*>& stations, Time now);
    /// When the next thing comes to a station that runs.
    Time deadline(const std::vector<Station*>& stations) const;

    /// Trouble that has nothing to do with a frame.
    void worsen(int nodes, Time now);
    void heal();
    /// All that a node had is gone; the others are told, or not.
    void crash(int node, bool isTold, Time now);
    /// A stop of this node may end its sessions.
    void trouble(int node);
    /// Whether anything befell the connection by which its session may have ended.
    bool wasTroubled(Connection connection) const;
    uint64_t faults() const { return faults_; }

private:
    struct Transit {
        enum class Kind { connected, frame, closed, dialFailed } kind = Kind::frame;
        Time at = {};
        Bytes frame;
    };
    /// One end of a connection, and what is on its way to it.
    struct End {
        int node = 0;
        bool isOpen = false;
        bool isDialler = false;
        std::deque<Transit> coming;
        size_t bytes = 0;
        Time last = {};  ///< nothing overtakes what was to come by then
        std::deque<Bytes> samples;
    };
    struct Pipe {
        std::array<End, 2> ends;
        bool isTroubled = false;
    };

    static int otherOf(const Pipe& pipe, int node) { return pipe.ends[0].node == node ? 1 : 0; }
    bool isBlocked(int from, int to) const { return blocked_.count({from, to}) != 0; }
    bool isReady(const Pipe& pipe, int end) const;
    void put(End& to, Transit transit, Time delay, Time now);
    void spoil(Pipe& pipe, End& to, Time now);
    void injectLate(Pipe& pipe, End& to, Time now);
    void tellClosed(Pipe& pipe, int end, Time now);
    bool step(const std::vector<Station*>& stations, uint64_t number, Pipe& pipe, int end, Time now);
    void cut(Pipe& pipe, bool half, Time now);
    void sweep();
    uint64_t fault(Pipe& pipe);

    Random& random_;
    const Weather& weather_;
    Trace& trace_;
    std::map<uint64_t, Pipe> pipes_;
    std::map<uint64_t, bool> troubled_;  ///< of connections that are no more
    std::map<std::pair<int, int>, Time> blocked_;
    std::map<std::pair<int, int>, std::deque<Bytes>> old_;  ///< frames of connections that are no more
    uint64_t next_ = 1;
    uint64_t faults_ = 0;
    bool isWell_ = false;
};

}  // namespace simulate

#endif
