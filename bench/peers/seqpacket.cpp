#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

/// A pair of sockets for each sender; it sends into the one and its receiver reads the other.
class SeqpacketSession : public Session {
public:
    explicit SeqpacketSession(const Layout& chosen) : layout_(chosen), pairs_(chosen.processes) {
        for (Pair& pair : pairs_) {
            check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.ends) == 0, "socketpair");
        }
    }
    ~SeqpacketSession() override {
        for (const Pair& pair : pairs_) {
            for (const int end : pair.ends) close(end);
        }
    }

    std::unique_ptr<End> open(unsigned self) override;

private:
    struct Pair {
        int ends[2];
    };

    Layout layout_;
    std::vector<Pair> pairs_;
};

class SeqpacketEnd : public PlainEnd {
public:
    SeqpacketEnd(std::size_t payload, int output, std::vector<int> sources)
        : PlainEnd(payload), incoming_(payload), out_(output), in_(std::move(sources)) {
        if (in_.size() < 2) return;
        poll_ = epoll_create1(EPOLL_CLOEXEC);
        check(poll_ != -1, "epoll_create1");
        for (const int source : in_) {
            epoll_event event = {};
            event.events = EPOLLIN;
            event.data.fd = source;
            check(epoll_ctl(poll_, EPOLL_CTL_ADD, source, &event) == 0, "epoll_ctl");
        }
    }

    View receive() override {
        const ssize_t size = recv(in_.size() == 1 ? in_.front() : ready(), incoming_.data(), incoming_.size(), 0);
        check(size > 0, "recv");
        return {incoming_.data(), static_cast<std::size_t>(size)};
    }

private:
    void transmit(View message) override {
        check(::send(out_, message.bytes, message.size, 0) == static_cast<ssize_t>(message.size), "send");
    }

    int ready() {
        if (next_ == count_) {
            count_ = epoll_wait(poll_, events_, most, -1);
            check(count_ > 0, "epoll_wait");
            next_ = 0;
        }
        return events_[next_++].data.fd;
    }

    static constexpr int most = 16;
    std::vector<char> incoming_;
    int out_;
    std::vector<int> in_;
    int poll_ = -1;
    epoll_event events_[most] = {};
    int count_ = 0;
    int next_ = 0;
};

std::unique_ptr<End> SeqpacketSession::open(unsigned self) {
    if (layout_.pattern == Pattern::roundTrip) {  // a socket is read and written
        return std::make_unique<SeqpacketEnd>(layout_.payload, pairs_[0].ends[self],
                                              std::vector<int>{pairs_[0].ends[self]});
    }
    std::vector<int> sources;
    for (unsigned sender = 0; sender < layout_.processes; ++sender) {
        if (layout_.receiverOf(sender) == self && sender != self) sources.push_back(pairs_[sender].ends[1]);
    }
    return std::make_unique<SeqpacketEnd>(layout_.payload, pairs_[self].ends[0], sources);
}

class Seqpacket : public Peer {
public:
    std::string name() const override { return seqpacketName; }
    std::unique_ptr<Session> begin(const Layout& layout) const override {
        return std::make_unique<SeqpacketSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> makeSeqpacket() {
    return std::make_unique<Seqpacket>();
}

}  // namespace bench
