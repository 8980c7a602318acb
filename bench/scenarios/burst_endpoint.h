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
        : endpoint(name), next(std::move(destination)) {
        Expect(message.Allocate(type, static_cast<unsigned>(payload), nullptr) == 0, "no memory for a message");
        std::memset(message.DataPtr(), 0, payload);
        endpoint.RegisterHandler(type, Count, this);
        Expect(endpoint.Init() == 0, "LinxIpc does not open");
    }

    /// Called when the destination is open.
    void Meet() { Expect(endpoint.ResolveDestination(next, true) == 0, "the destination is not found"); }

    void PassOn() { endpoint.RegisterRelayHandler(type, Forward, this); }

    void Send() { Expect(endpoint.Notify(next, message, true) == 0, "Notify"); }

    void Receive() {
        const unsigned before = handled;
        const int result = endpoint.Receive(0, 0, LinxIpc::emptyString, nullptr);
        Expect(result == 0 && handled == before + 1, "a message is missing");
    }

private:
    static BurstEndpoint& Of(void* user) { return *static_cast<BurstEndpoint*>(user); }
    static void Count(LinxIpc*, void* user) { ++Of(user).handled; }
    static void Forward(LinxIpc* relay, void* user) {
        if (relay->Relay(relay->relayMessage, Of(user).next) == 0) ++Of(user).handled;
    }

    LinxIpc endpoint;
    std::string next;
    IpcMessage message;
    unsigned handled = 0;
};

}  // namespace bench

#endif
