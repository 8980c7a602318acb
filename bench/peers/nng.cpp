#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>
#include <nng/protocol/pipeline0/pull.h>
#include <nng/protocol/pipeline0/push.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

constexpr int queueLength = 1000;

void Must(int result, const char* what) {
    Expect(result == 0, std::string(what) + ": " + nng_strerror(result));
}

/// Pair sockets for round trips, a pull socket in each receiver and a push socket in each sender for the rest.
/// Messages are handed over whole, as nng's manual advises.
class NngEnd : public End {
public:
    NngEnd(const Layout& chosen, unsigned process) : layout(chosen), self(process), outgoing(layout.payload) {
        if (layout.pattern == Pattern::roundTrip) {
            Must(nng_pair0_open(&in), "nng_pair0_open");
            out = in;
            if (self == 0) Must(nng_listen(in, Address(0).c_str(), nullptr, 0), "nng_listen");
            return;
        }
        Must(nng_pull0_open(&in), "nng_pull0_open");
        Must(nng_push0_open(&out), "nng_push0_open");
        nng_socket_set_int(in, NNG_OPT_RECVBUF, queueLength);
        nng_socket_set_int(out, NNG_OPT_SENDBUF, queueLength);
        Must(nng_listen(in, Address(self).c_str(), nullptr, 0), "nng_listen");
    }
    ~NngEnd() override { nng_msg_free(incoming); }

    void Connect() override {
        const unsigned receiver = layout.ReceiverOf(self);
        if (receiver != self) Must(nng_dial(out, Address(receiver).c_str(), nullptr, 0), "nng_dial");
    }

    char* Outgoing() override { return outgoing.data(); }

    void Send() override {
        nng_msg* message = nullptr;
        Must(nng_msg_alloc(&message, outgoing.size()), "nng_msg_alloc");
        std::memcpy(nng_msg_body(message), outgoing.data(), outgoing.size());
        Must(nng_sendmsg(out, message, 0), "nng_sendmsg");
    }

    View Receive() override {
        nng_msg_free(incoming);
        incoming = nullptr;
        Must(nng_recvmsg(in, &incoming, 0), "nng_recvmsg");
        return {static_cast<const char*>(nng_msg_body(incoming)), nng_msg_len(incoming)};
    }

    View Request() override {
        Send();
        return Receive();
    }
    void Serve() override { Forward(); }
    void Forward() override {
        Receive();
        Must(nng_sendmsg(out, incoming, 0), "nng_sendmsg");
        incoming = nullptr;
    }

private:
    std::string Address(unsigned process) const {
        return "ipc://" + layout.directory + "/nng." + std::to_string(process);
    }

    Layout layout;
    unsigned self;
    std::vector<char> outgoing;
    nng_socket in = NNG_SOCKET_INITIALIZER;
    nng_socket out = NNG_SOCKET_INITIALIZER;
    nng_msg* incoming = nullptr;
};

class NngSession : public Session {
public:
    explicit NngSession(const Layout& chosen) : layout(chosen) {}
    std::unique_ptr<End> Open(unsigned self) override { return std::make_unique<NngEnd>(layout, self); }

private:
    Layout layout;
};

class Nng : public Peer {
public:
    std::string Name() const override { return nngName; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<NngSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeNng() {
    return std::make_unique<Nng>();
}

}  // namespace bench
