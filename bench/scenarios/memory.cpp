#include <sys/stat.h>

#include <algorithm>

#include "bench/harness/crew.h"
#include "bench/harness/footprint.h"
#include "bench/harness/shared.h"
#include "bench/harness/workspace.h"
#include "bench/scenarios/burst_endpoint.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

/// What this process has to itself, and the whole of the domain's memory.
Footprint look(const std::string& domain) {
    Footprint now = footprintOf("self");
    struct stat arena = {};
    check(stat((domain + "/arena").c_str(), &arena) == 0, "no arena");
    now.shared = static_cast<double>(arena.st_blocks) * 512;
    return now;
}

void putGrowth(FigureSheet& sheet, const std::string& what, const Footprint& before, const Footprint& after,
               std::size_t count) {
    const auto each = static_cast<double>(count);
    sheet.put((what + "_shared_bytes").c_str(), (after.shared - before.shared) / each);
    sheet.put((what + "_private_bytes").c_str(), (after.own - before.own) / each);
}

void fill(const std::string& domain, const Case& chosen, FigureSheet& sheet) {
    BurstEndpoint sender("sender", "receiver", chosen.payload), receiver("receiver", "", chosen.payload);
    sender.meet();
    sender.send();
    receiver.receive();
    const Footprint alone = look(domain);
    std::vector<std::unique_ptr<LinxIpc>> endpoints;
    for (unsigned i = 0; i < chosen.population; ++i) {
        endpoints.push_back(std::make_unique<LinxIpc>("idle." + std::to_string(i)));
        expect(endpoints.back()->Init() == 0, "LinxIpc does not open");
    }
    const Footprint crowded = look(domain);
    putGrowth(sheet, "endpoint", alone, crowded, chosen.population);
    sheet.put("endpoint_descriptors", (crowded.descriptors - alone.descriptors) / chosen.population);
    const std::size_t messages = std::clamp<std::size_t>((std::size_t{16} << 20) / chosen.payload, 1, 10000);
    for (std::size_t i = 0; i < messages; ++i) sender.send();
    putGrowth(sheet, "message", crowded, look(domain), messages);
}

class Memory : public Scenario {
public:
    std::string name() const override { return "memory"; }
    std::string about() const override {
        return "What an idle endpoint and a queued message take of the domain's memory, and of their process's own; "
               "counts the endpoints";
    }

    std::vector<Case> cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Case& each : linxIpcAmong(wishes, Placement::both, payload, {200})) cases.push_back(each);
        }
        return cases;
    }

    unsigned repeats(unsigned) const override { return 1; }

    Figures run(const Case& chosen, const Effort&) const override {
        const Workspace workspace;
        const Shared<FigureSheet> sheet;
        runCrew({{Member::Part::principal, [&] { fill(workspace.path(), chosen, *sheet); }}});
        return sheet->read();
    }
};

}  // namespace

std::unique_ptr<Scenario> makeMemory() {
    return std::make_unique<Memory>();
}

}  // namespace bench
