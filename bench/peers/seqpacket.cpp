#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

/// A pair of sockets for each sender; it sends into the one and its receiver reads the other.
struct SeqpacketSession : Session {
    explicit SeqpacketSession(const Layout& chosen) : Session(chosen), pairs(chosen.processes) {
        for (Pair& pair : pairs) {
            check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.ends) == 0, "socketpair");
        }
    }
    ~SeqpacketSession() override {
        for (const Pair& pair : pairs) {
            for (const int end : pair.ends) close(end);
        }
    }

    struct Pair {
        int ends[2];
    };
    std::vector<Pair> pairs;
};

class SeqpacketEnd : public PlainEnd {
public:
    SeqpacketEnd(const SeqpacketSession& session, unsigned self)
        : PlainEnd(session.layout.payload), incoming_(session.layout.payload), out_(session.pairs[self].ends[0]) {
        if (session.layout.pattern == Pattern::roundTrip) {  // a socket is read and written
            out_ = session.pairs[0].ends[self];
            in_ = {out_};
            return;
        }
        for (const unsigned sender : session.layout.sendersTo(self)) in_.push_back(session.pairs[sender].ends[1]);
        if (in_.size() >= 2) watchAll();
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

    void watchAll() {
        poll_ = epoll_create1(EPOLL_CLOEXEC);
        check(poll_ != -1, "epoll_create1");
        for (const int source : in_) {
            epoll_event event = {};
            event.events = EPOLLIN;
            event.data.fd = source;
            check(epoll_ctl(poll_, EPOLL_CTL_ADD, source, &event) == 0, "epoll_ctl");
        }
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

}  // namespace

const Peer seqpacket = peerOf<SeqpacketEnd, SeqpacketSession>(seqpacketName);

}  // namespace bench
