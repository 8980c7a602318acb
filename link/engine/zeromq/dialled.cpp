#include "link/engine/zeromq/dialled.h"

#include <cstring>

#include "link/engine/zeromq/words.h"

namespace linx::link {
namespace {

/// Longer than the time for a connection and that for its handshake: then something else is wrong.
constexpr Time longestDial = std::chrono::milliseconds(5000);
/// When it would connect again, long after this end of it is closed. Told not to, it would throw away what has
/// arrived and was not read when the connection ends; told to wait for connections (IMMEDIATE), as well.
constexpr int neverMilliseconds = 60 * 60 * 1000;
constexpr int routingIdBytes = 16;

std::string randomId() {
    // Chosen so that no other peer can know it, or it might be given what is meant for this one.
    const KeyPair random = newKeyPair();
    return random.publicKey.substr(0, routingIdBytes);
}

const char* reasonOf(uint16_t event) {
    switch (event) {
        case ZMQ_EVENT_HANDSHAKE_FAILED_AUTH:
            return "the peer does not know this node's key";
        case ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL:
            return "the other end is not a link, or has another key";
        case ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL:
            return "the other end does not answer as a link with this key does";
        case ZMQ_EVENT_CLOSED:
            return "nobody listens there";
        case ZMQ_EVENT_DISCONNECTED:
            return "the connection was lost";
        default:
            return nullptr;
    }
}

}  // namespace

Dialled::Dialled(const ZmqContext& context, const KeyPair& keys, const std::string& peerKey,
                 const std::string& address, Connection connection, Time now)
    : socket_(context, ZMQ_DEALER), monitor_(context, ZMQ_PAIR), limit_(now + longestDial) {
    const std::string monitor = "inproc://monitor." + std::to_string(static_cast<uint64_t>(connection));
    constexpr int events = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                           ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                           ZMQ_EVENT_CLOSED | ZMQ_EVENT_DISCONNECTED;
    // All of it must take effect: without the keys there would be no encryption.
    const bool isReady =
        socket_.get() != nullptr && monitor_.get() != nullptr && socket_.set(ZMQ_CURVE_SERVERKEY, peerKey) &&
        socket_.set(ZMQ_CURVE_PUBLICKEY, keys.publicKey) && socket_.set(ZMQ_CURVE_SECRETKEY, keys.secretKey) &&
        socket_.set(ZMQ_ROUTING_ID, randomId()) && socket_.set(ZMQ_IPV6, 1) &&
        socket_.set(ZMQ_RECONNECT_IVL, neverMilliseconds) && socket_.set(ZMQ_CONNECT_TIMEOUT, greetingMilliseconds) &&
        socket_.set(ZMQ_HANDSHAKE_IVL, greetingMilliseconds) && socket_.set(ZMQ_SNDHWM, mostWaiting) &&
        socket_.set(ZMQ_RCVHWM, mostWaiting) && socket_.setLargestMessage(largestMessage) &&
        zmq_socket_monitor(socket_.get(), monitor.c_str(), events) == 0 && monitor_.connect(monitor) &&
        socket_.connect(address);
    if (!isReady) end(zmq_strerror(zmq_errno()));
}

void Dialled::end(const char* reason) {
    state_ = State::ended;
    reason_ = reason;
}

bool Dialled::readOne(std::optional<Bytes>& frame, Time now) {
    if (state_ == State::ended) return false;
    if (lookAtMonitor()) return true;
    if (state_ == State::dialling) {
        if (lost_ != nullptr) end(lost_);
        if (state_ == State::dialling && now >= limit_) end("there is no answer");
        if (isConnected_ && state_ == State::dialling && socket_.send(&opens, sizeof opens)) state_ = State::open;
        return state_ != State::dialling;
    }
    ZmqPart part;
    if (!socket_.receive(part)) {
        if (lost_ != nullptr) end(lost_);
        return state_ == State::ended;
    }
    const bool isWhole = !part.hasMore();
    while (part.hasMore()) socket_.receive(part);
    if (!isWhole || (part.size() == 1 && *part.data() == closes)) {
        end(isWhole ? "the other end has closed it" : "the peer sent what no link sends");
    } else {
        frame = Bytes(part.data(), part.data() + part.size());
    }
    return true;
}

/// An event is two parts: its number and a value, in the byte order of this machine; and an address.
bool Dialled::lookAtMonitor() {
    const std::vector<std::string> event = monitor_.receiveAll(2);
    if (event.empty()) return false;
    uint16_t number = 0;
    if (event[0].size() >= sizeof number) std::memcpy(&number, event[0].data(), sizeof number);
    if (number == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) {
        isConnected_ = true;
    } else if (lost_ == nullptr) {  // the first one says most
        lost_ = reasonOf(number);
    }
    return true;
}

Carried Dialled::send(const Bytes& frame) {
    if (state_ != State::open) return Carried::gone;
    return socket_.send(frame.data(), frame.size()) ? Carried::taken : Carried::later;
}

void Dialled::close() {
    if (state_ == State::open) {
        socket_.send(&closes, sizeof closes);
        socket_.set(ZMQ_LINGER, lingerMilliseconds);
    }
    zmq_socket_monitor(socket_.get(), nullptr, 0);
    state_ = State::ended;
}

}  // namespace linx::link
