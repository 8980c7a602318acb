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

void copy(const Case& chosen, const Effort& effort, FigureSheet& sheet) {
    confine(chosen.placement);
    std::vector<char> from(chosen.payload), to(chosen.payload);
    const auto lap = [&] {
        for (unsigned i = 0; i < perLap; ++i) {
            std::memcpy(to.data(), from.data(), chosen.payload);
            asm volatile("" : : "r"(to.data()) : "memory");  // the copy is wanted each time
        }
    };
    timeLaps(
        effort, lap, [] { return clockNanoseconds(CLOCK_PROCESS_CPUTIME_ID); }, sheet);
}

class CopyScenario : public Scenario {
public:
    std::string name() const override { return "copy"; }
    std::string about() const override { return "memcpy of the payload within one process, warm in its cache"; }

    std::vector<Case> cases(const Wishes& wishes) const override {
        std::vector<Case> cases;
        for (const std::size_t payload : wishes.payloads) {
            for (const Peer* peer : only(bareMemoryName, wishes)) {
                cases.push_back({peer, Placement::one, payload, perLap});
            }
        }
        return cases;
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const Shared<FigureSheet> sheet;
        runCrew({{Member::Part::principal, [&] { copy(chosen, effort, *sheet); }}});
        Figures figures = sheet->read();
        for (const char* name : {"median_ns", "p99_ns", "cpu_ns"}) figures[name] /= perLap;
        return figures;
    }
};

}  // namespace

std::unique_ptr<Scenario> makeCopy() {
    return std::make_unique<CopyScenario>();
}

}  // namespace bench
