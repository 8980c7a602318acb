#include "bench/harness/crew.h"
#include "bench/harness/workspace.h"
#include "bench/scenarios/burst_endpoint.h"
#include "bench/scenarios/bursts.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

constexpr unsigned processes = 3;

class RelayHop : public Scenario {
public:
    std::string name() const override { return "relay-hop"; }
    std::string about() const override {
        return "What the process in the middle takes to receive a message and pass it on";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Case& each : linxIpcAmong(wishes, Placement::both, payload, {processes}))
                cases.push_back(each);
        }
        return cases;
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Bursts bursts(processes, effort);
        const Barrier allOpen(processes);
        const Shared<FigureSheet> sheet;
        const auto open = [&](const char* name, const char* next) {
            confine(chosen.placement);
            auto endpoint = std::make_unique<BurstEndpoint>(name, next, chosen.payload);
            allOpen.wait();
            if (*next != '\0') endpoint->meet();
            return endpoint;
        };
        const auto send = [&] {
            const auto source = open("source", "relay");
            bursts.takePart(0, [&] { source->send(); });
        };
        const auto passOn = [&] {
            const auto relay = open("relay", "sink");
            relay->passOn();
            bursts.measure(
                1, [&] { relay->receive(); }, *sheet);
        };
        const auto receive = [&] {
            const auto sink = open("sink", "");
            bursts.takePart(2, [&] { sink->receive(); });
        };
        constexpr auto principal = Member::Part::principal;
        runCrew({{principal, send}, {principal, passOn}, {principal, receive}});
        return sheet->read();
    }
};

}  // namespace

std::unique_ptr<Scenario> makeRelayHop() {
    return std::make_unique<RelayHop>();
}

}  // namespace bench
