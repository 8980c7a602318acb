#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "bench/harness/crew.h"
#include "bench/harness/shared.h"
#include "bench/harness/workspace.h"
#include "bench/scenarios/burst_endpoint.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

/// What this process takes, alone and of the domain's memory.
struct Footprint {
    double arena, own, descriptors;
};

Footprint Look(const std::string& domain) {
    Footprint now = {};
    struct stat arena = {};
    Check(stat((domain + "/arena").c_str(), &arena) == 0, "no arena");
    now.arena = static_cast<double>(arena.st_blocks) * 512;
    std::ifstream sums("/proc/self/smaps_rollup");
    for (std::string line; std::getline(sums, line);) {
        if (line.rfind("Anonymous:", 0) != 0) continue;
        now.own = std::stod(line.substr(line.find(':') + 1)) * 1024;
    }
    const std::filesystem::directory_iterator open("/proc/self/fd");
    now.descriptors = static_cast<double>(std::distance(begin(open), end(open)));
    return now;
}

void PutGrowth(FigureSheet& sheet, const std::string& what, const Footprint& before, const Footprint& after,
               std::size_t count) {
    const auto each = static_cast<double>(count);
    sheet.Put((what + "_shared_bytes").c_str(), (after.arena - before.arena) / each);
    sheet.Put((what + "_private_bytes").c_str(), (after.own - before.own) / each);
}

void Fill(const std::string& domain, const Case& chosen, FigureSheet& sheet) {
    BurstEndpoint sender("sender", "receiver", chosen.payload), receiver("receiver", "", chosen.payload);
    sender.Meet();
    sender.Send();
    receiver.Receive();
    const Footprint alone = Look(domain);
    std::vector<std::unique_ptr<LinxIpc>> endpoints;
    for (unsigned i = 0; i < chosen.population; ++i) {
        endpoints.push_back(std::make_unique<LinxIpc>("idle." + std::to_string(i)));
        Expect(endpoints.back()->Init() == 0, "LinxIpc does not open");
    }
    const Footprint crowded = Look(domain);
    PutGrowth(sheet, "endpoint", alone, crowded, chosen.population);
    sheet.Put("endpoint_descriptors", (crowded.descriptors - alone.descriptors) / chosen.population);
    const std::size_t messages = std::clamp<std::size_t>((std::size_t{16} << 20) / chosen.payload, 1, 10000);
    for (std::size_t i = 0; i < messages; ++i) sender.Send();
    PutGrowth(sheet, "message", crowded, Look(domain), messages);
}

class Memory : public Scenario {
public:
    std::string Name() const override { return "memory"; }
    std::string About() const override {
        return "What an idle endpoint and a queued message take of the domain's memory, and of their process's own; "
               "counts the endpoints";
    }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Case& each : LinxIpcAmong(wishes, Placement::both, payload, {200})) cases.push_back(each);
        }
        return cases;
    }

    unsigned Repeats(unsigned) const override { return 1; }

    Figures Run(const Case& chosen, const Effort&) const override {
        const Workspace workspace;
        const Shared<FigureSheet> sheet;
        RunCrew({{Member::Part::principal, [&] { Fill(workspace.Path(), chosen, *sheet); }}});
        return sheet->Read();
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeMemory() {
    return std::make_unique<Memory>();
}

}  // namespace bench
