#include "link/engine/zeromq/listener.h"

#include "link/engine/zeromq/gatekeeper.h"

namespace linx::link {

Listener::Listener(const ZmqContext& context, const KeyPair& keys, Keys peers)
    : socket_(context, ZMQ_ROUTER), peers_(std::move(peers)) {
    // All of it must take effect: without the keys or the domain everybody would be let in.
    isReady_ = socket_.get() != nullptr && socket_.set(ZMQ_CURVE_SERVER, 1) &&
               socket_.set(ZMQ_CURVE_SECRETKEY, keys.secretKey) &&
               socket_.set(ZMQ_ZAP_DOMAIN, std::string(Gatekeeper::domain)) && socket_.set(ZMQ_ROUTER_MANDATORY, 1) &&
               socket_.set(ZMQ_IPV6, 1) && socket_.set(ZMQ_HANDSHAKE_IVL, greetingMilliseconds) &&
               socket_.set(ZMQ_SNDHWM, mostWaiting) && socket_.set(ZMQ_RCVHWM, mostWaiting) &&
               socket_.setLargestMessage(largestMessage);
}

std::string Listener::address() const {
    char text[256] = {};
    size_t size = sizeof text - 1;
    zmq_getsockopt(socket_.get(), ZMQ_LAST_ENDPOINT, text, &size);
    return text;
}

bool Listener::readOne(std::optional<News>& news, Connection next) {
    ZmqPart routingId;
    if (!socket_.receive(routingId)) return false;
    const std::string id = routingId.text();
    ZmqPart part;
    if (!routingId.hasMore() || !socket_.receive(part)) return true;
    if (part.hasMore()) {  // no link sends that
        while (part.hasMore()) socket_.receive(part);
        return true;
    }
    // The gatekeeper has put it there. Without it the message has come past the gatekeeper, and goes no further.
    const char* const key = zmq_msg_gets(part.get(), "User-Id");
    const auto peer = key == nullptr ? peers_.end() : peers_.find(key);
    if (peer != peers_.end()) hear({peer->second, id}, part.data(), part.size(), news, next);
    return true;
}

void Listener::hear(const Place& place, const uint8_t* data, size_t size, std::optional<News>& news,
                    Connection next) {
    const auto known = connections_.find(place);
    const bool isWord = size == 1;
    if (known == connections_.end()) {
        // What comes without it belongs to a connection that was closed from here.
        if (!isWord || *data != opens) return;
        connections_[place] = next;
        places_[next] = place;
        news = Connected{place.first, next, false};
    } else if (isWord && *data == closes) {
        news = forget(known->second, "the other end has closed it");
    } else {
        news = FrameArrived{known->second, Bytes(data, data + size)};
    }
}

bool Listener::sendTo(const Place& place, const uint8_t* data, size_t size) {
    return socket_.sendText(place.second, true) && socket_.send(data, size);
}

std::optional<Carried> Listener::send(Connection connection, const Bytes& frame, std::optional<News>& news) {
    const auto found = places_.find(connection);
    if (found == places_.end()) return std::nullopt;
    if (sendTo(found->second, frame.data(), frame.size())) return Carried::taken;
    if (zmq_errno() == EAGAIN) return Carried::later;
    news = forget(connection, "the connection was lost");
    return Carried::gone;
}

std::optional<News> Listener::forget(Connection connection, const char* reason) {
    const auto found = places_.find(connection);
    connections_.erase(found->second);
    places_.erase(found);
    return Disconnected{connection, reason};
}

void Listener::close(Connection connection) {
    const auto found = places_.find(connection);
    if (found == places_.end()) return;
    sendTo(found->second, &closes, sizeof closes);
    forget(connection, "");
}

}  // namespace linx::link
