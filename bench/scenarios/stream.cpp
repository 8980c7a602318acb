#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

/// All that send to process 0 as fast as it takes.
Figures flow(const Case& chosen, const Effort& effort) {
    const unsigned processes = chosen.population + 1;
    const auto receive = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
        Sequence sequence(processes, chosen.payload);
        countSteps(
            effort, [&] { sequence.follow(end.receive()); }, used, sheet);
    };
    return converse(*chosen.peer, {Pattern::fanIn, processes, chosen.payload, chosen.placement, ""}, 0, receive,
                    sendNext);
}

/// Of the cases that were combined by the number of processes, all but one of which send.
std::vector<Case> countingSenders(std::vector<Case> cases) {
    for (Case& each : cases) --each.population;
    return cases;
}

class Stream : public Scenario {
public:
    std::string name() const override { return "stream"; }
    std::string about() const override { return "Messages one way, to a receiver that handles them one by one"; }
    std::vector<Case> cases(const Wishes& wishes) const override {
        return countingSenders(combineForTwo(wishes, Pattern::fanIn));
    }
    Figures run(const Case& chosen, const Effort& effort) const override { return flow(chosen, effort); }
};

class FanIn : public Scenario {
public:
    std::string name() const override { return "fan-in"; }
    std::string about() const override { return "Messages from many senders to one receiver; counts the senders"; }
    std::vector<Case> cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {3, 17}, many = {2, 3, 5, 9, 17};
        return countingSenders(combine(wishes.peers, Pattern::fanIn, {Placement::both, Placement::one}, {64},
                                       wishes.effort.quick ? few : many));
    }
    Figures run(const Case& chosen, const Effort& effort) const override { return flow(chosen, effort); }
};

}  // namespace

std::unique_ptr<Scenario> makeStream() {
    return std::make_unique<Stream>();
}

std::unique_ptr<Scenario> makeFanIn() {
    return std::make_unique<FanIn>();
}

}  // namespace bench
