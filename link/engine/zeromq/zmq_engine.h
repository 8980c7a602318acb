#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_ZMQ_ENGINE_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_ZMQ_ENGINE_H

#include <deque>
#include <map>

#include "link/engine/engine.h"
#include "link/engine/zeromq/dialled.h"
#include "link/engine/zeromq/gatekeeper.h"
#include "link/engine/zeromq/listener.h"

namespace linx::link {

/// A peer as this engine knows and reaches it.
struct ZmqPeer {
    std::string key;
    std::string address;  ///< such as tcp://10.0.0.2:7400; empty: it is waited for
};

/// Why an engine could not be had.
struct Trouble {
    int error = 0;
    std::string text;
};

/// Over TCP, encrypted by CURVE. Both ends have to know each other's public key; nothing else gets in.
class ZmqEngine : public Engine {
public:
    /// `listen` is an address, or empty. Null when it cannot be had; `trouble` says why.
    static std::unique_ptr<ZmqEngine> open(const KeyPair& keys, const std::string& listen, std::vector<ZmqPeer> peers,
                                           Trouble& trouble);
    ~ZmqEngine() override;

    void dial(PeerNumber peer, Time now) override;
    Carried send(Connection connection, const Bytes& frame) override;
    void close(Connection connection) override;
    std::optional<News> next(Time now) override;
    int descriptor() const override { return epoll_; }
    Time deadline() const override;

    /// Where it listens, with the port that it was given if it had left that open.
    std::string address() const { return listener_ ? listener_->address() : std::string(); }
    /// Connections that were refused for their key.
    uint64_t strangers() const { return gatekeeper_ ? gatekeeper_->refused() : 0; }

private:
    struct Call {
        PeerNumber peer = {};
        Dialled dialled;
        bool isTold = false;
    };

    ZmqEngine(const KeyPair& keys, std::vector<ZmqPeer> peers);
    bool look(Time now);
    bool lookAtListener();
    bool lookAt(Connection connection, Call& call, Time now);
    void watch(int descriptor, bool isWatched);
    void forget(Connection connection);

    const KeyPair keys_;
    const std::vector<ZmqPeer> peers_;
    // Destroyed from the last to the first: the gatekeeper outlives the listener, and the context all of them.
    ZmqContext context_;
    std::unique_ptr<Gatekeeper> gatekeeper_;
    std::unique_ptr<Listener> listener_;
    std::map<Connection, Call> calls_;
    std::deque<News> news_;
    int epoll_;
    uint64_t next_ = 1;
    bool hasMore_ = false;  ///< it was not looked at everything
};

}  // namespace linx::link

#endif
