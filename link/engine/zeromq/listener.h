#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_LISTENER_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_LISTENER_H

#include <map>
#include <optional>

#include "link/engine/engine.h"
#include "link/engine/zeromq/keys.h"
#include "link/engine/zeromq/words.h"
#include "link/engine/zeromq/zmq_socket.h"

namespace linx::link {

/// The socket that all peers dial, and their connections in it.
class Listener {
public:
    /// Numbers of peers by their keys.
    using Keys = std::map<std::string, PeerNumber>;

    /// Not before there is a gatekeeper in this context.
    Listener(const ZmqContext& context, const KeyPair& keys, Keys peers);
    /// What it has taken has some time left.
    ~Listener() { socket_.set(ZMQ_LINGER, lingerMilliseconds); }

    bool bind(const std::string& address) { return isReady_ && socket_.bind(address); }
    std::string address() const;
    int descriptor() const { return socket_.descriptor(); }

    /// Reads one message, if there is one; false when there is none. What it means is put into `news`. A new
    /// connection is given the number `next`.
    bool readOne(std::optional<News>& news, Connection next);
    /// Nothing when it has no such connection.
    std::optional<Carried> send(Connection connection, const Bytes& frame, std::optional<News>& news);
    void close(Connection connection);

private:
    /// Each connection has a routing id, and belongs to the peer whose key has let it in: the id alone is chosen by
    /// the other end.
    using Place = std::pair<PeerNumber, std::string>;

    void hear(const Place& place, const uint8_t* data, size_t size, std::optional<News>& news, Connection next);
    std::optional<News> forget(Connection connection, const char* reason);
    bool sendTo(const Place& place, const uint8_t* data, size_t size);

    ZmqSocket socket_;
    const Keys peers_;
    bool isReady_;
    std::map<Place, Connection> connections_;
    std::map<Connection, Place> places_;
};

}  // namespace linx::link

#endif
