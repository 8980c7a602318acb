#ifndef LINXIPC_BENCH_SCENARIOS_BURST_ENDPOINT_H
#define LINXIPC_BENCH_SCENARIOS_BURST_ENDPOINT_H

#include <string>

#include "bench/harness/check.h"
#include "ipc/linxIpc.h"

namespace bench {

/// An endpoint that sends, counts or passes on messages of one type.
class BurstEndpoint {
public:
    static constexpr unsigned type = 2000;

    /// `next` is where messages go, empty for an endpoint that only receives.
    BurstEndpoint(const std::string& name, std::string destination, std::size_t payload)
        : endpoint_(name), next_(std::move(destination)) {
        expect(message_.Allocate(type, static_cast<unsigned>(payload), nullptr) == 0, "no memory for a message");
        std::memset(message_.DataPtr(), 0, payload);
        endpoint_.RegisterHandler(type, count, this);
        expect(endpoint_.Init() == 0, "LinxIpc does not open");
    }

    /// Called when the destination is open.
    void meet() { expect(endpoint_.ResolveDestination(next_, true) == 0, "the destination is not found"); }

    void passOn() { endpoint_.RegisterRelayHandler(type, forward, this); }

    void send() { expect(endpoint_.Notify(next_, message_, true) == 0, "Notify"); }

    void receive() {
        const unsigned before = handled_;
        const int result = endpoint_.Receive(0, 0, LinxIpc::emptyString, nullptr);
        expect(result == 0 && handled_ == before + 1, "a message is missing");
    }

private:
    static BurstEndpoint& of(void* user) { return *static_cast<BurstEndpoint*>(user); }
    static void count(LinxIpc*, void* user) { ++of(user).handled_; }
    static void forward(LinxIpc* relay, void* user) {
        if (relay->Relay(relay->relayMessage, of(user).next_) == 0) ++of(user).handled_;
    }

    LinxIpc endpoint_;
    std::string next_;
    IpcMessage message_;
    unsigned handled_ = 0;
};

}  // namespace bench

#endif
