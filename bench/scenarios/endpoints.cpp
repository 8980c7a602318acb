#include <optional>

#include "bench/harness/clock.h"
#include "bench/harness/statistics.h"
#include "bench/harness/workspace.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/crowd.h"
#include "bench/scenarios/list.h"
#include "ipc/linxIpc.h"

namespace bench {

namespace {

/// Opens an endpoint, finds another and closes, over and over.
void ComeAndGo(unsigned endpoints, unsigned rounds, FigureSheet& sheet) {
    std::vector<std::uint32_t> open, hunt, close;
    for (unsigned round = 0; round < rounds; ++round) {
        const std::string other = CrowdName(round * 7919 % endpoints);
        std::optional<LinxIpc> endpoint("visitor");
        const std::uint64_t start = Now();
        Expect(endpoint->Init() == 0, "LinxIpc does not open");
        const std::uint64_t opened = Now();
        Expect(endpoint->ResolveDestination(other, true) == 0, "an endpoint is not found");
        const std::uint64_t found = Now();
        endpoint.reset();
        const std::uint64_t closed = Now();
        open.push_back(static_cast<std::uint32_t>(opened - start));
        hunt.push_back(static_cast<std::uint32_t>(found - opened));
        close.push_back(static_cast<std::uint32_t>(closed - found));
    }
    sheet.Put("open_ns", Quantile(open, 0.5));
    sheet.Put("hunt_ns", Quantile(hunt, 0.5));
    sheet.Put("close_ns", Quantile(close, 0.5));
    sheet.Put("open_p99_ns", Quantile(open, 0.99));
    sheet.Put("hunt_p99_ns", Quantile(hunt, 0.99));
    sheet.Put("close_p99_ns", Quantile(close, 0.99));
}

class Endpoints : public Scenario {
public:
    std::string Name() const override { return "endpoints"; }
    std::string About() const override {
        return "Opening an endpoint, finding another and closing; counts the endpoints that are there already";
    }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {10, 100}, many = {10, 100, 1000, 4000};
        return LinxIpcAmong(wishes, Placement::both, 0, wishes.effort.quick ? few : many);
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Barrier allOpen(HoldersFor(chosen.population) + 1);
        const Shared<FigureSheet> sheet;
        std::vector<Member> members;
        AddCrowd(chosen.population, allOpen, members);
        members.push_back({Member::Part::principal, [&] {
                               allOpen.Wait();
                               ComeAndGo(chosen.population, effort.quick ? 20 : 500, *sheet);
                           }});
        RunCrew(members);
        return sheet->Read();
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeEndpoints() {
    return std::make_unique<Endpoints>();
}

}  // namespace bench
