#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

constexpr unsigned servers = 37;

class Ring : public Scenario {
public:
    std::string Name() const override { return "ring"; }
    std::string About() const override { return "A message that goes once round many servers; counts the servers"; }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        return Combine(Blocking(wishes), Pattern::chain, {Placement::both, Placement::one}, {64}, {servers});
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const auto goRound = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Sequence sequence(servers, chosen.payload);
            const auto lap = [&] {
                SendNext(end, 0);
                sequence.Follow(end.Receive());
            };
            TimeLaps(effort, lap, used, sheet);
        };
        const auto passOn = [](End& end, unsigned) { end.Forward(); };
        Figures figures = Converse(*chosen.peer, {Pattern::chain, servers, chosen.payload, chosen.placement, ""}, 0,
                                   goRound, passOn);
        figures["hop_ns"] = figures["median_ns"] / servers;
        return figures;
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeRing() {
    return std::make_unique<Ring>();
}

}  // namespace bench
