#include "bench/harness/clock.h"
#include "bench/harness/crew.h"
#include "bench/harness/shared.h"
#include "bench/peers/list.h"
#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"

namespace bench {

namespace {

constexpr unsigned perLap = 64;  // one copy of a few bytes is shorter than a look at the clock

void Copy(const Case& chosen, const Effort& effort, FigureSheet& sheet) {
    Confine(chosen.placement);
    std::vector<char> from(chosen.payload), to(chosen.payload);
    const auto lap = [&] {
        for (unsigned i = 0; i < perLap; ++i) {
            std::memcpy(to.data(), from.data(), chosen.payload);
            asm volatile("" : : "r"(to.data()) : "memory");  // the copy is wanted each time
        }
    };
    TimeLaps(
        effort, lap, [] { return ClockNanoseconds(CLOCK_PROCESS_CPUTIME_ID); }, sheet);
}

class CopyScenario : public Scenario {
public:
    std::string Name() const override { return "copy"; }
    std::string About() const override { return "memcpy of the payload within one process, warm in its cache"; }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Peer* peer : Only(bareMemoryName, wishes)) {
                cases.push_back({peer, Placement::one, payload, perLap});
            }
        }
        return cases;
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const Shared<FigureSheet> sheet;
        RunCrew({{Member::Part::principal, [&] { Copy(chosen, effort, *sheet); }}});
        Figures figures = sheet->Read();
        for (const char* name : {"median_ns", "p99_ns", "cpu_ns"}) figures[name] /= perLap;
        return figures;
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeCopy() {
    return std::make_unique<CopyScenario>();
}

}  // namespace bench
