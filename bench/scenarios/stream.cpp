#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

/// All that send to process 0 as fast as it takes.
Figures Flow(const Case& chosen, const Effort& effort) {
    const unsigned processes = chosen.population + 1;
    const auto receive = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
        Sequence sequence(processes, chosen.payload);
        CountSteps(
            effort, [&] { sequence.Follow(end.Receive()); }, used, sheet);
    };
    return Converse(*chosen.peer, {Pattern::fanIn, processes, chosen.payload, chosen.placement, ""}, 0, receive,
                    SendNext);
}

/// Of the cases that were combined by the number of processes, all but one of which send.
std::vector<Case> CountingSenders(std::vector<Case> cases) {
    for (Case& each : cases) --each.population;
    return cases;
}

class Stream : public Scenario {
public:
    std::string Name() const override { return "stream"; }
    std::string About() const override { return "Messages one way, to a receiver that handles them one by one"; }
    std::vector<Case> Cases(const Wishes& wishes) const override {
        return CountingSenders(CombineForTwo(wishes, Pattern::fanIn));
    }
    Figures Run(const Case& chosen, const Effort& effort) const override { return Flow(chosen, effort); }
};

class FanIn : public Scenario {
public:
    std::string Name() const override { return "fan-in"; }
    std::string About() const override { return "Messages from many senders to one receiver; counts the senders"; }
    std::vector<Case> Cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {3, 17}, many = {2, 3, 5, 9, 17};
        return CountingSenders(Combine(wishes.peers, Pattern::fanIn, {Placement::both, Placement::one}, {64},
                                       wishes.effort.quick ? few : many));
    }
    Figures Run(const Case& chosen, const Effort& effort) const override { return Flow(chosen, effort); }
};

}  // namespace

std::unique_ptr<Scenario> MakeStream() {
    return std::make_unique<Stream>();
}

std::unique_ptr<Scenario> MakeFanIn() {
    return std::make_unique<FanIn>();
}

}  // namespace bench
