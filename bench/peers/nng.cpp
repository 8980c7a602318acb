#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>
#include <nng/protocol/pipeline0/pull.h>
#include <nng/protocol/pipeline0/push.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

constexpr int queueLength = 1000;

void must(int result, const char* what) {
    expect(result == 0, std::string(what) + ": " + nng_strerror(result));
}

/// Pair sockets for round trips, a pull socket in each receiver and a push socket in each sender for the rest.
/// Messages are handed over whole, as nng's manual advises.
class NngEnd : public End {
public:
    NngEnd(const Session& session, unsigned process)
        : layout_(session.layout), self_(process), outgoing_(layout_.payload) {
        if (layout_.pattern == Pattern::roundTrip) {
            must(nng_pair0_open(&in_), "nng_pair0_open");
            out_ = in_;
            if (self_ == 0) must(nng_listen(in_, address(0).c_str(), nullptr, 0), "nng_listen");
            return;
        }
        must(nng_pull0_open(&in_), "nng_pull0_open");
        must(nng_push0_open(&out_), "nng_push0_open");
        nng_socket_set_int(in_, NNG_OPT_RECVBUF, queueLength);
        nng_socket_set_int(out_, NNG_OPT_SENDBUF, queueLength);
        must(nng_listen(in_, address(self_).c_str(), nullptr, 0), "nng_listen");
    }
    ~NngEnd() override { nng_msg_free(incoming_); }

    void connect() override {
        const unsigned receiver = layout_.receiverOf(self_);
        if (receiver != self_) must(nng_dial(out_, address(receiver).c_str(), nullptr, 0), "nng_dial");
    }

    char* outgoing() override { return outgoing_.data(); }

    void send() override {
        nng_msg* message = nullptr;
        must(nng_msg_alloc(&message, outgoing_.size()), "nng_msg_alloc");
        std::memcpy(nng_msg_body(message), outgoing_.data(), outgoing_.size());
        must(nng_sendmsg(out_, message, 0), "nng_sendmsg");
    }

    View receive() override {
        nng_msg_free(incoming_);
        incoming_ = nullptr;
        must(nng_recvmsg(in_, &incoming_, 0), "nng_recvmsg");
        return {static_cast<const char*>(nng_msg_body(incoming_)), nng_msg_len(incoming_)};
    }

    View request() override {
        send();
        return receive();
    }
    void serve() override { forward(); }
    void forward() override {
        receive();
        must(nng_sendmsg(out_, incoming_, 0), "nng_sendmsg");
        incoming_ = nullptr;
    }

private:
    std::string address(unsigned process) const {
        return "ipc://" + layout_.directory + "/nng." + std::to_string(process);
    }

    Layout layout_;
    unsigned self_;
    std::vector<char> outgoing_;
    nng_socket in_ = NNG_SOCKET_INITIALIZER;
    nng_socket out_ = NNG_SOCKET_INITIALIZER;
    nng_msg* incoming_ = nullptr;
};

}  // namespace

const Peer nng = peerOf<NngEnd>(nngName);

}  // namespace bench
