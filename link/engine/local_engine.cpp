#include "link/engine/local_engine.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace linx::link {
namespace {

constexpr int mostGreeters = 64;

struct Address {
    explicit Address(const std::string& name) {
        place.sun_family = AF_UNIX;
        const size_t length = std::min(name.size(), sizeof place.sun_path - 1);
        std::memcpy(place.sun_path + 1, name.data(), length);  // the zero in front makes it abstract
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&place); }

    sockaddr_un place = {};
    socklen_t size = 0;
};

int newSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

}  // namespace

LocalEngine::LocalEngine(const LocalNode& self, std::vector<LocalNode> peers)
    : key_(self.key), peers_(std::move(peers)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (self.address.empty()) return;
    const Address address(self.address);
    const int listener = newSocket();
    if (bind(listener, address.get(), address.size) == -1 || listen(listener, mostGreeters) == -1) {
        ::close(listener);
        return;
    }
    listener_ = listener;
    watch(listener_);
}

LocalEngine::~LocalEngine() {
    for (const auto& [socket, line] : lines_) ::close(socket);
    if (listener_ != -1) ::close(listener_);
    ::close(epoll_);
}

void LocalEngine::watch(int socket) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = socket;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event);
}

void LocalEngine::add(int socket, std::optional<PeerNumber> peer) {
    lines_[socket] = {Connection(next_++), peer};
    watch(socket);
}

void LocalEngine::dial(PeerNumber peer, Time) {
    const Address address(peers_[indexOf(peer)].address);
    const int socket = newSocket();
    if (connect(socket, address.get(), address.size) == -1 ||
        ::send(socket, key_.data(), key_.size(), MSG_NOSIGNAL) == -1) {
        news_.push_back(DialFailed{peer, std::strerror(errno)});
        ::close(socket);
        return;
    }
    add(socket, peer);
    news_.push_back(Connected{peer, lines_[socket].connection, true});
}

std::optional<int> LocalEngine::socketOf(Connection connection) const {
    for (const auto& [socket, line] : lines_) {
        if (line.connection == connection) return socket;
    }
    return std::nullopt;
}

Carried LocalEngine::send(Connection connection, const Bytes& frame) {
    const std::optional<int> socket = socketOf(connection);
    if (!socket) return Carried::gone;
    if (::send(*socket, frame.data(), frame.size(), MSG_NOSIGNAL) != -1) return Carried::taken;
    if (errno == EAGAIN || errno == EINTR || errno == ENOBUFS) return Carried::later;
    return Carried::gone;  // reading from it tells
}

void LocalEngine::close(Connection connection) {
    if (const std::optional<int> socket = socketOf(connection)) drop(*socket);
}

void LocalEngine::drop(int socket) {
    lines_.erase(socket);
    ::close(socket);
}

std::optional<News> LocalEngine::next(Time) {
    epoll_event event = {};
    while (news_.empty() && epoll_wait(epoll_, &event, 1, 0) == 1) {
        if (event.data.fd == listener_) {
            acceptOne();
        } else {
            readFrom(event.data.fd);
        }
    }
    if (news_.empty()) return std::nullopt;
    News news = std::move(news_.front());
    news_.pop_front();
    return news;
}

void LocalEngine::acceptOne() {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket != -1) add(socket, std::nullopt);
}

void LocalEngine::readFrom(int socket) {
    Bytes frame(frameBytes + 1);  // one that is larger arrives cut off, and still too large
    ssize_t size = recv(socket, frame.data(), frame.size(), 0);
    // The other end closed before it had read everything. What it had sent is still there behind the error.
    if (size == -1 && errno == ECONNRESET) size = recv(socket, frame.data(), frame.size(), 0);
    Line& line = lines_[socket];
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) {
        if (line.peer) news_.push_back(Disconnected{line.connection, "the other end has closed it"});
        return drop(socket);
    }
    frame.resize(static_cast<size_t>(size));
    if (!line.peer) return greeted(socket, line, std::string(frame.begin(), frame.end()));
    news_.push_back(FrameArrived{line.connection, std::move(frame)});
}

void LocalEngine::greeted(int socket, Line& line, const std::string& key) {
    const auto isPeer = [&](const LocalNode& peer) { return peer.key == key; };
    const auto peer = std::find_if(peers_.begin(), peers_.end(), isPeer);
    if (peer == peers_.end()) return drop(socket);
    line.peer = PeerNumber(peer - peers_.begin());
    news_.push_back(Connected{*line.peer, line.connection, false});
}

}  // namespace linx::link
