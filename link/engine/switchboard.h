#ifndef LINXIPC_LINK_ENGINE_SWITCHBOARD_H
#define LINXIPC_LINK_ENGINE_SWITCHBOARD_H

#include <functional>

#include "link/engine/engine.h"

namespace linx::link {

/// Joins the peers of a node with the engine that carries their frames.
class Switchboard {
public:
    /// `random` gives 64 bits that nobody foresees.
    Switchboard(Engine& engine, std::function<uint64_t()> random) : engine_(engine), random_(std::move(random)) {}

    /// In the order in which the engine knows them.
    void add(const Settings& settings, Peer::Side side, bool dials);
    Peer& peer(PeerNumber number) { return *peers_[indexOf(number)]; }
    size_t size() const { return peers_.size(); }
    /// Why the last dial of this peer came to nothing; empty once one did.
    const std::string& trouble(PeerNumber number) const { return troubles_[indexOf(number)]; }

    /// Has the peers hear what has come in, tells them the time and sends what they have to say. What the peers have
    /// to tell is taken from them afterwards; whoever asks something of them calls it again. Answers when to call it
    /// anew at the latest; before that, when the engine's descriptor is readable.
    Time turn(Time now);

private:
    struct Line {
        PeerNumber peer = {};
        std::optional<Bytes> waiting;  ///< a frame that the engine was to take later: no other may leave before it
    };
    using Lines = std::map<Connection, Line>;

    bool hear(Time now);
    void take(News& news, Time now);
    bool speak(Time now);
    bool carry(Connection connection, Line& line, Time now);
    bool close(Peer& peer);

    Engine& engine_;
    const std::function<uint64_t()> random_;
    std::vector<std::unique_ptr<Peer>> peers_;
    std::vector<std::string> troubles_;
    Lines lines_;
    bool isHeldUp_ = false;  ///< the engine was full
};

}  // namespace linx::link

#endif
