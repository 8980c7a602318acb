#include "bench/harness/workspace.h"
#include "bench/scenarios/burst_endpoint.h"
#include "bench/scenarios/bursts.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/crowd.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

class CrowdedSend : public Scenario {
public:
    std::string name() const override { return "crowded-send"; }
    std::string about() const override {
        return "A Notify to a known peer; counts the other endpoints of the domain";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {10, 100}, many = {10, 4000};
        return linxIpcAmong(wishes, Placement::both, 64, wishes.effort.quick ? few : many);
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Bursts bursts(2, effort);
        const Barrier allOpen(holdersFor(chosen.population) + 2);
        const Shared<FigureSheet> sheet;
        std::vector<Member> members;
        addCrowd(chosen.population, allOpen, members);
        const auto send = [&] {
            BurstEndpoint sender("sender", "receiver", chosen.payload);
            allOpen.wait();
            sender.meet();
            bursts.measure(
                0, [&] { sender.send(); }, *sheet);
        };
        const auto receive = [&] {
            BurstEndpoint receiver("receiver", "", chosen.payload);
            allOpen.wait();
            bursts.takePart(1, [&] { receiver.receive(); });
        };
        members.push_back({Member::Part::principal, send});
        members.push_back({Member::Part::principal, receive});
        runCrew(members);
        return sheet->read();
    }
};

}  // namespace

std::unique_ptr<Scenario> makeCrowdedSend() {
    return std::make_unique<CrowdedSend>();
}

}  // namespace bench
