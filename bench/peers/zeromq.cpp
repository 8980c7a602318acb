#include <zmq.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

/// PAIR sockets for round trips, a PULL socket in each receiver and a PUSH socket in each sender for the rest.
class ZeromqEnd : public End {
public:
    ZeromqEnd(const Session& session, unsigned self) : outgoing_(session.layout.payload), context_(zmq_ctx_new()) {
        const Layout& layout = session.layout;
        const auto address = [&](unsigned process) {
            return "ipc://" + layout.directory + "/zeromq." + std::to_string(process);
        };
        zmq_msg_init(&incoming_);
        if (layout.pattern == Pattern::roundTrip) {
            in_ = out_ = zmq_socket(context_, ZMQ_PAIR);
            check((self == 0 ? zmq_bind : zmq_connect)(in_, address(0).c_str()) == 0, "ZeroMQ pair");
            return;
        }
        in_ = zmq_socket(context_, ZMQ_PULL);
        out_ = zmq_socket(context_, ZMQ_PUSH);
        check(zmq_bind(in_, address(self).c_str()) == 0, "zmq_bind");
        check(zmq_connect(out_, address(layout.receiverOf(self)).c_str()) == 0, "zmq_connect");
    }

    char* outgoing() override { return outgoing_.data(); }

    void send() override {
        check(zmq_send(out_, outgoing_.data(), outgoing_.size(), 0) == static_cast<int>(outgoing_.size()),
              "zmq_send");
    }

    View receive() override {
        check(zmq_msg_recv(&incoming_, in_, 0) != -1, "zmq_msg_recv");
        return {static_cast<const char*>(zmq_msg_data(&incoming_)), zmq_msg_size(&incoming_)};
    }

    View request() override {
        send();
        return receive();
    }
    void serve() override { forward(); }
    void forward() override {
        receive();
        check(zmq_msg_send(&incoming_, out_, 0) != -1, "zmq_msg_send");
    }

private:
    std::vector<char> outgoing_;
    void* context_;  // goes with its process: ending it would wait for what was not delivered
    void* in_ = nullptr;
    void* out_ = nullptr;
    zmq_msg_t incoming_;
};

}  // namespace

const Peer zeromq = peerOf<ZeromqEnd>(zeromqName);

}  // namespace bench
