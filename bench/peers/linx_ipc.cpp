#include "bench/peers/head.h"
#include "bench/peers/list.h"
#include "bench/peers/window.h"
#include "ipc/linxIpc.h"

namespace bench {

namespace {

enum Type : unsigned { plainType = 2000, requestType, answerType, creditType };

std::string nameOf(std::uint64_t process) {
    return "bench." + std::to_string(process);
}

/// Registered handlers all around. A stream has a window, as a queue without bounds would only measure how far a
/// sender can run ahead: for every half of it that was received, the sender gets a credit.
class LinxIpcEnd : public End {
public:
    LinxIpcEnd(const Session& session, unsigned process)
        : layout_(session.layout),
          self_(process),
          receiver_(layout_.receiverOf(process)),
          half_(windowFor(layout_.payload) / 2),
          endpoint_(nameOf(self_)),
          next_(nameOf(receiver_)) {
        const auto size = static_cast<unsigned>(layout_.payload);
        expect(message_.Allocate(plainType, size, nullptr) == 0 &&
                   question_.Allocate(requestType, size, nullptr) == 0 &&
                   reply_.Allocate(answerType, size, nullptr) == 0 && ticket_.Allocate(creditType, 0, nullptr) == 0,
               "no memory for messages");
        std::memset(message_.DataPtr(), 0, size);
        std::memset(question_.DataPtr(), 0, size);
        std::memset(reply_.DataPtr(), 0, size);
        endpoint_.RegisterHandler(plainType, received, this);
        endpoint_.RegisterHandler(requestType, answer, this);
        endpoint_.RegisterHandler(creditType, earn, this);
        expect(endpoint_.Init() == 0, "LinxIpc does not open");
    }

    void connect() override {
        if (receiver_ != self_) expect(endpoint_.ResolveDestination(next_, true) == 0, "a receiver is not found");
    }

    char* outgoing() override { return (layout_.pattern == Pattern::roundTrip ? question_ : message_).DataPtr(); }

    void send() override {
        if (sent_++ % half_ == 0 && sent_ > 2 * half_) spend();
        expect(endpoint_.Notify(next_, message_, true) == 0, "Notify");
    }

    View receive() override {
        do {
            dispatch();
        } while (endpoint_.rxMessage.MsgType() == creditType);
        return {endpoint_.rxMessage.DataPtr(), endpoint_.rxMessage.Length()};
    }

    View request() override {
        expect(endpoint_.Request(next_, question_, answerType, -1, &incoming_) == 0, "Request");
        return {incoming_.DataPtr(), incoming_.Length()};
    }

    void serve() override { dispatch(); }

    void forward() override {
        if (!forwarding_) {
            endpoint_.RegisterRelayHandler(plainType, passOn, this);
            forwarding_ = true;
        }
        dispatch();
    }

private:
    void spend() {
        if (credits_ == 0) {
            expect(endpoint_.Receive(-1, creditType, LinxIpc::emptyString, &incoming_) == 0, "no credit");
        } else {
            --credits_;
        }
    }

    static LinxIpcEnd& of(void* end) { return *static_cast<LinxIpcEnd*>(end); }

    void dispatch() {
        handled_ = false;
        expect(endpoint_.Receive(-1, 0, LinxIpc::emptyString, nullptr) == 0 && handled_, "Receive");
    }

    static void received(LinxIpc* here, void* user) {
        LinxIpcEnd& end = of(user);
        end.handled_ = true;
        const Head head = headOf({here->rxMessage.DataPtr(), here->rxMessage.Length()});
        if (head.number % end.half_ != 0) return;
        end.handled_ = here->Notify(nameOf(head.sender), end.ticket_, true) == 0;
    }

    static void earn(LinxIpc*, void* user) {
        ++of(user).credits_;
        of(user).handled_ = true;
    }

    static void answer(LinxIpc* server, void* user) {
        LinxIpcEnd& end = of(user);
        std::memcpy(end.reply_.DataPtr(), server->rxMessage.DataPtr(), sizeof(Head));
        end.handled_ = server->Notify(server->rxMessage.GetSender(), end.reply_, true) == 0;
    }

    static void passOn(LinxIpc* relay, void* user) {
        LinxIpcEnd& end = of(user);
        end.handled_ = relay->Relay(relay->relayMessage, end.next_) == 0;
    }

    Layout layout_;
    unsigned self_, receiver_;
    std::uint64_t half_;
    LinxIpc endpoint_;
    std::string next_;
    IpcMessage message_, question_, reply_, ticket_, incoming_;
    std::uint64_t sent_ = 0;
    unsigned credits_ = 0;  ///< that came while something else was awaited
    bool handled_ = false;
    bool forwarding_ = false;
};

}  // namespace

const Peer linxIpc = peerOf<LinxIpcEnd>(linxIpcName);

}  // namespace bench
