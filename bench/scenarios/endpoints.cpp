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
void comeAndGo(unsigned endpoints, unsigned rounds, FigureSheet& sheet) {
    std::vector<std::uint32_t> open, hunt, close;
    for (unsigned round = 0; round < rounds; ++round) {
        const std::string other = crowdName(round * 7919 % endpoints);
        std::optional<LinxIpc> endpoint("visitor");
        const std::uint64_t start = now();
        expect(endpoint->Init() == 0, "LinxIpc does not open");
        const std::uint64_t opened = now();
        expect(endpoint->ResolveDestination(other, true) == 0, "an endpoint is not found");
        const std::uint64_t found = now();
        endpoint.reset();
        const std::uint64_t closed = now();
        open.push_back(static_cast<std::uint32_t>(opened - start));
        hunt.push_back(static_cast<std::uint32_t>(found - opened));
        close.push_back(static_cast<std::uint32_t>(closed - found));
    }
    sheet.put("open_ns", quantile(open, 0.5));
    sheet.put("hunt_ns", quantile(hunt, 0.5));
    sheet.put("close_ns", quantile(close, 0.5));
    sheet.put("open_p99_ns", quantile(open, 0.99));
    sheet.put("hunt_p99_ns", quantile(hunt, 0.99));
    sheet.put("close_p99_ns", quantile(close, 0.99));
}

class Endpoints : public Scenario {
public:
    std::string name() const override { return "endpoints"; }
    std::string about() const override {
        return "Opening an endpoint, finding another and closing; counts the endpoints that are there already";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {10, 100}, many = {10, 100, 1000, 4000};
        return linxIpcAmong(wishes, Placement::both, 0, wishes.effort.quick ? few : many);
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Workspace workspace;
        const Barrier allOpen(holdersFor(chosen.population) + 1);
        const Shared<FigureSheet> sheet;
        std::vector<Member> members;
        addCrowd(chosen.population, allOpen, members);
        members.push_back({Member::Part::principal, [&] {
                               allOpen.wait();
                               comeAndGo(chosen.population, effort.quick ? 20 : 500, *sheet);
                           }});
        runCrew(members);
        return sheet->read();
    }
};

}  // namespace

std::unique_ptr<Scenario> makeEndpoints() {
    return std::make_unique<Endpoints>();
}

}  // namespace bench
