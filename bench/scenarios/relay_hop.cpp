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
    std::string Name() const override { return "relay-hop"; }
    std::string About() const override {
        return "What the process in the middle takes to receive a message and pass it on";
    }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Case& each : LinxIpcAmong(wishes, Placement::both, payload, {processes}))
                cases.push_back(each);
        }
        return cases;
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Bursts bursts(processes, effort);
        const Barrier allOpen(processes);
        const Shared<FigureSheet> sheet;
        const auto open = [&](const char* name, const char* next) {
            Confine(chosen.placement);
            auto endpoint = std::make_unique<BurstEndpoint>(name, next, chosen.payload);
            allOpen.Wait();
            if (*next != '\0') endpoint->Meet();
            return endpoint;
        };
        const auto send = [&] {
            const auto source = open("source", "relay");
            bursts.TakePart(0, [&] { source->Send(); });
        };
        const auto passOn = [&] {
            const auto relay = open("relay", "sink");
            relay->PassOn();
            bursts.Measure(
                1, [&] { relay->Receive(); }, *sheet);
        };
        const auto receive = [&] {
            const auto sink = open("sink", "");
            bursts.TakePart(2, [&] { sink->Receive(); });
        };
        constexpr auto principal = Member::Part::principal;
        RunCrew({{principal, send}, {principal, passOn}, {principal, receive}});
        return sheet->Read();
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeRelayHop() {
    return std::make_unique<RelayHop>();
}

}  // namespace bench
