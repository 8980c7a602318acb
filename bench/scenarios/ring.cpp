#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

constexpr unsigned servers = 37;

class Ring : public Scenario {
public:
    std::string name() const override { return "ring"; }
    std::string about() const override { return "A message that goes once round many servers; counts the servers"; }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return combine(blocking(wishes), Pattern::chain, {Placement::both, Placement::one}, {64}, {servers});
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const auto goRound = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Sequence sequence(servers, chosen.payload);
            const auto lap = [&] {
                sendNext(end, 0);
                sequence.follow(end.receive());
            };
            timeLaps(effort, lap, used, sheet);
        };
        const auto passOn = [](End& end, unsigned) { end.forward(); };
        Figures figures = converse(*chosen.peer, {Pattern::chain, servers, chosen.payload, chosen.placement, ""}, 0,
                                   goRound, passOn);
        figures["hop_ns"] = figures["median_ns"] / servers;
        return figures;
    }
};

}  // namespace

std::unique_ptr<Scenario> makeRing() {
    return std::make_unique<Ring>();
}

}  // namespace bench
