#ifndef LINXIPC_LINK_ENGINE_ZEROMQ_DIALLED_H
#define LINXIPC_LINK_ENGINE_ZEROMQ_DIALLED_H

#include "link/engine/engine.h"
#include "link/engine/zeromq/keys.h"
#include "link/engine/zeromq/zmq_socket.h"

namespace linx::link {

/*
 * A connection that was dialled: a socket of its own that connects once and never again, since a new connection is a
 * new session. What becomes of it is told by the socket's monitor. As the socket lives through one connection only,
 * there are fewer events than the monitor has room for, so it never holds up the thread behind the socket.
 */
class Dialled {
public:
    enum class State { dialling, open, ended };

    Dialled(const ZmqContext& context, const KeyPair& keys, const std::string& peerKey, const std::string& address,
            Connection connection, Time now);

    /// Reads one message, if there is one; false when there is nothing more now. A frame is put into `frame`.
    bool readOne(std::optional<Bytes>& frame, Time now);
    Carried send(const Bytes& frame);
    /// Sends what it has taken, and a last word, while the context lives; for so long and no longer.
    void close();

    State state() const { return state_; }
    const std::string& reason() const { return reason_; }
    Time deadline() const { return state_ == State::dialling ? limit_ : Time::max(); }
    std::vector<int> descriptors() const { return {socket_.descriptor(), monitor_.descriptor()}; }

private:
    bool lookAtMonitor();
    void end(const char* reason);

    ZmqSocket socket_;
    ZmqSocket monitor_;
    State state_ = State::dialling;
    const Time limit_;
    bool isConnected_ = false;    ///< but perhaps not taken into use
    const char* lost_ = nullptr;  ///< what ended it; there may be something left to read
    std::string reason_;
};

}  // namespace linx::link

#endif
