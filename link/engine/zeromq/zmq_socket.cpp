#include "link/engine/zeromq/zmq_socket.h"

namespace linx::link {

std::vector<std::string> ZmqSocket::receiveAll(size_t most) {
    std::vector<std::string> parts;
    for (bool hasMore = true; hasMore;) {
        ZmqPart part;
        if (!receive(part)) break;
        if (parts.size() < most) parts.push_back(part.text());
        hasMore = part.hasMore();
    }
    return parts;
}

}  // namespace linx::link
