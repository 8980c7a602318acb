#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_GATEKEEPER_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_GATEKEEPER_H

#include <set>

#include "link/engine/zeromq/zmq_socket.h"

namespace linx::link {

/// Says which keys may connect. ZeroMQ asks it in the middle of a handshake, and admits everybody where nobody
/// answers under its name: so it is there before any socket that listens, and for longer. What is admitted has the
/// key as its user id in each message.
class Gatekeeper {
public:
    static constexpr const char* domain = "linx";

    Gatekeeper(const ZmqContext& context, std::set<std::string> keys);

    bool isOpen() const { return isOpen_; }
    int descriptor() const { return socket_.descriptor(); }
    /// Answers one question; false when there is none.
    bool answerOne();
    /// Those that had shown a key which is not on the list.
    uint64_t refused() const { return refused_; }

private:
    bool mayEnter(const std::vector<std::string>& question, std::string& key) const;

    ZmqSocket socket_;
    const std::set<std::string> keys_;
    bool isOpen_;
    uint64_t refused_ = 0;
};

}  // namespace linx::link

#endif
