#include <zmq.h>

#include "bench/peers/list.h"

namespace bench {

namespace {

/// PAIR sockets for round trips, a PULL socket in each receiver and a PUSH socket in each sender for the rest.
class ZeromqEnd : public End {
public:
    ZeromqEnd(const Layout& layout, unsigned self) : outgoing(layout.payload), context(zmq_ctx_new()) {
        const auto address = [&](unsigned process) {
            return "ipc://" + layout.directory + "/zeromq." + std::to_string(process);
        };
        zmq_msg_init(&incoming);
        if (layout.pattern == Pattern::roundTrip) {
            in = out = zmq_socket(context, ZMQ_PAIR);
            Check((self == 0 ? zmq_bind : zmq_connect)(in, address(0).c_str()) == 0, "ZeroMQ pair");
            return;
        }
        in = zmq_socket(context, ZMQ_PULL);
        out = zmq_socket(context, ZMQ_PUSH);
        Check(zmq_bind(in, address(self).c_str()) == 0, "zmq_bind");
        Check(zmq_connect(out, address(layout.ReceiverOf(self)).c_str()) == 0, "zmq_connect");
    }

    char* Outgoing() override { return outgoing.data(); }

    void Send() override {
        Check(zmq_send(out, outgoing.data(), outgoing.size(), 0) == static_cast<int>(outgoing.size()), "zmq_send");
    }

    View Receive() override {
        Check(zmq_msg_recv(&incoming, in, 0) != -1, "zmq_msg_recv");
        return {static_cast<const char*>(zmq_msg_data(&incoming)), zmq_msg_size(&incoming)};
    }

    View Request() override {
        Send();
        return Receive();
    }
    void Serve() override { Forward(); }
    void Forward() override {
        Receive();
        Check(zmq_msg_send(&incoming, out, 0) != -1, "zmq_msg_send");
    }

private:
    std::vector<char> outgoing;
    void* context;  // goes with its process: ending it would wait for what was not delivered
    void* in = nullptr;
    void* out = nullptr;
    zmq_msg_t incoming;
};

class ZeromqSession : public Session {
public:
    explicit ZeromqSession(const Layout& chosen) : layout(chosen) {}
    std::unique_ptr<End> Open(unsigned self) override { return std::make_unique<ZeromqEnd>(layout, self); }

private:
    Layout layout;
};

class Zeromq : public Peer {
public:
    std::string Name() const override { return zeromqName; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<ZeromqSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeZeromq() {
    return std::make_unique<Zeromq>();
}

}  // namespace bench
