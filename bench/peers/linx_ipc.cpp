#include "bench/peers/head.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"
#include "ipc/linxIpc.h"

namespace bench {

namespace {

enum Type : unsigned { plain = 2000, request, answer, credit };

std::string NameOf(std::uint64_t process) {
    return "bench." + std::to_string(process);
}

/// Registered handlers all around. A stream has a window, as a queue without bounds would only measure how far a
/// sender can run ahead: for every half of it that was received, the sender gets a credit.
class LinxIpcEnd : public End {
public:
    LinxIpcEnd(const Layout& chosen, unsigned process)
        : layout(chosen),
          self(process),
          receiver(layout.ReceiverOf(process)),
          half(WindowFor(layout.payload) / 2),
          endpoint(NameOf(self)),
          next(NameOf(receiver)) {
        const auto size = static_cast<unsigned>(layout.payload);
        Expect(message.Allocate(plain, size, nullptr) == 0 && question.Allocate(request, size, nullptr) == 0 &&
                   reply.Allocate(answer, size, nullptr) == 0 && ticket.Allocate(credit, 0, nullptr) == 0,
               "no memory for messages");
        std::memset(message.DataPtr(), 0, size);
        std::memset(question.DataPtr(), 0, size);
        std::memset(reply.DataPtr(), 0, size);
        endpoint.RegisterHandler(plain, Received, this);
        endpoint.RegisterHandler(request, Answer, this);
        endpoint.RegisterHandler(credit, Earn, this);
        Expect(endpoint.Init() == 0, "LinxIpc does not open");
    }

    void Connect() override {
        if (receiver != self) Expect(endpoint.ResolveDestination(next, true) == 0, "a receiver is not found");
    }

    char* Outgoing() override { return (layout.pattern == Pattern::roundTrip ? question : message).DataPtr(); }

    void Send() override {
        if (sent++ % half == 0 && sent > 2 * half) Spend();
        Expect(endpoint.Notify(next, message, true) == 0, "Notify");
    }

    View Receive() override {
        do {
            Dispatch();
        } while (endpoint.rxMessage.MsgType() == credit);
        return {endpoint.rxMessage.DataPtr(), endpoint.rxMessage.Length()};
    }

    View Request() override {
        Expect(endpoint.Request(next, question, answer, -1, &incoming) == 0, "Request");
        return {incoming.DataPtr(), incoming.Length()};
    }

    void Serve() override { Dispatch(); }

    void Forward() override {
        if (!forwarding) {
            endpoint.RegisterRelayHandler(plain, PassOn, this);
            forwarding = true;
        }
        Dispatch();
    }

private:
    void Spend() {
        if (credits == 0) {
            Expect(endpoint.Receive(-1, credit, LinxIpc::emptyString, &incoming) == 0, "no credit");
        } else {
            --credits;
        }
    }

    static LinxIpcEnd& Of(void* end) { return *static_cast<LinxIpcEnd*>(end); }

    void Dispatch() {
        handled = false;
        Expect(endpoint.Receive(-1, 0, LinxIpc::emptyString, nullptr) == 0 && handled, "Receive");
    }

    static void Received(LinxIpc* here, void* user) {
        LinxIpcEnd& end = Of(user);
        end.handled = true;
        const Head head = HeadOf({here->rxMessage.DataPtr(), here->rxMessage.Length()});
        if (head.number % end.half != 0) return;
        end.handled = here->Notify(NameOf(head.sender), end.ticket, true) == 0;
    }

    static void Earn(LinxIpc*, void* user) {
        ++Of(user).credits;
        Of(user).handled = true;
    }

    static void Answer(LinxIpc* server, void* user) {
        LinxIpcEnd& end = Of(user);
        std::memcpy(end.reply.DataPtr(), server->rxMessage.DataPtr(), sizeof(Head));
        end.handled = server->Notify(server->rxMessage.GetSender(), end.reply, true) == 0;
    }

    static void PassOn(LinxIpc* relay, void* user) {
        LinxIpcEnd& end = Of(user);
        end.handled = relay->Relay(relay->relayMessage, end.next) == 0;
    }

    Layout layout;
    unsigned self, receiver;
    std::uint64_t half;
    LinxIpc endpoint;
    std::string next;
    IpcMessage message, question, reply, ticket, incoming;
    std::uint64_t sent = 0;
    unsigned credits = 0;  ///< that came while something else was awaited
    bool handled = false;
    bool forwarding = false;
};

class LinxIpcSession : public Session {
public:
    explicit LinxIpcSession(const Layout& chosen) : layout(chosen) {}
    std::unique_ptr<End> Open(unsigned self) override { return std::make_unique<LinxIpcEnd>(layout, self); }

private:
    Layout layout;
};

class LinxIpcPeer : public Peer {
public:
    std::string Name() const override { return linxIpcName; }
    std::unique_ptr<Session> Begin(const Layout& layout) const override {
        return std::make_unique<LinxIpcSession>(layout);
    }
};

}  // namespace

std::unique_ptr<Peer> MakeLinxIpc() {
    return std::make_unique<LinxIpcPeer>();
}

}  // namespace bench
