#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

/// A pair of sockets for each sender; it sends into the one and its receiver reads the other.
class SeqpacketSession : public Session {
public:
    explicit SeqpacketSession(const Layout& chosen) : layout(chosen), pairs(chosen.processes) {
        for (Pair& pair : pairs) {
            Check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.ends) == 0, "socketpair");
        }
    }
    ~SeqpacketSession() override {
        for (const Pair& pair : pairs) {
            for (const int end : pair.ends) close(end);
        }
    }

    std::unique_ptr<End> Open(unsigned self) override;

private:
    struct Pair {
        int ends[2];
    };

    Layout layout;
    std::vector<Pair> pairs;
};

class SeqpacketEnd : public PlainEnd {
public:
    SeqpacketEnd(std::size_t payload, int output, std::vector<int> sources)
        : PlainEnd(payload), incoming(payload), out(output), in(std::move(sources)) {
        if (in.size() < 2) return;
        poll = epoll_create1(EPOLL_CLOEXEC);
        Check(poll != -1, "epoll_create1");
        for (const int source : in) {
            epoll_event event = {};
            event.events = EPOLLIN;
            event.data.fd = source;
            Check(epoll_ctl(poll, EPOLL_CTL_ADD, source, &event) == 0, "epoll_ctl");
        }
    }

    View Receive() override {
        const ssize_t size = recv(in.size() == 1 ? in.front() : Ready(), incoming.data(), incoming.size(), 0);
        Check(size > 0, "recv");
        return {incoming.data(), static_cast<std::size_t>(size)};
    }

private:
    void Transmit(View message) override {
        Check(send(out, message.bytes, message.size, 0) == static_cast<ssize_t>(message.size), "send");
    }

    int Ready() {
        if (next == count) {
            count = epoll_wait(poll, events, most, -1);
            Check(count > 0, "epoll_wait");
            next = 0;
        }
        return events[next++].data.fd;
    }

    static constexpr int most = 16;
    std::vector<char> incoming;
    int out;
    std::vector<int> in;
    int poll = -1;
    epoll_event events[most] = {};
    int count = 0;
    int next = 0;
};

std::unique_ptr<End> SeqpacketSession::Open(unsigned self) {
    if (layout.pattern == Pattern::roundTrip) {  // a socket is read and written
        return std::make_unique<SeqpacketEnd>(layout.payload, pairs[0].ends[self],
                                              std::vector<int>{pairs[0].ends[self]});
    }
    std::vector<int> sources;
    for (unsigned sender = 0; sender < layout.processes; ++sender) {
        if (layout.ReceiverOf(sender) == self && sender != self) sources.push_back(pairs[sender].ends[1]);
    }
    return std::make_unique<SeqpacketEnd>(layout.payload, pairs[self].ends[0], sources);
}

class Seqpacket : public Peer {
public:
    std::string Name() const override { return seqpacketName; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<SeqpacketSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeSeqpacket() {
    return std::make_unique<Seqpacket>();
}

}  // namespace bench
