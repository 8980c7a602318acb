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
    std::string Name() const override { return "crowded-send"; }
    std::string About() const override {
        return "A Notify to a known peer; counts the other endpoints of the domain";
    }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {10, 100}, many = {10, 4000};
        return LinxIpcAmong(wishes, Placement::both, 64, wishes.effort.quick ? few : many);
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Bursts bursts(2, effort);
        const Barrier allOpen(HoldersFor(chosen.population) + 2);
        const Shared<FigureSheet> sheet;
        std::vector<Member> members;
        AddCrowd(chosen.population, allOpen, members);
        const auto send = [&] {
            BurstEndpoint sender("sender", "receiver", chosen.payload);
            allOpen.Wait();
            sender.Meet();
            bursts.Measure(
                0, [&] { sender.Send(); }, *sheet);
        };
        const auto receive = [&] {
            BurstEndpoint receiver("receiver", "", chosen.payload);
            allOpen.Wait();
            bursts.TakePart(1, [&] { receiver.Receive(); });
        };
        members.push_back({Member::Part::principal, send});
        members.push_back({Member::Part::principal, receive});
        RunCrew(members);
        return sheet->Read();
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeCrowdedSend() {
    return std::make_unique<CrowdedSend>();
}

}  // namespace bench
