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

std::vector<Case> Senders(const Wishes& wishes, const std::vector<Placement>& placements,
                          const std::vector<std::size_t>& payloads, const std::vector<unsigned>& senders) {
    std::vector<unsigned> processes;
    for (const unsigned count : senders) processes.push_back(count + 1);
    std::vector<Case> cases = Combine(wishes.peers, Pattern::fanIn, placements, payloads, processes);
    for (Case& each : cases) --each.population;
    return cases;
}

class Stream : public Scenario {
public:
    std::string Name() const override { return "stream"; }
    std::string About() const override { return "Messages one way, to a receiver that handles them one by one"; }
    std::vector<Case> Cases(const Wishes& wishes) const override {
        return Senders(wishes, {Placement::apart, Placement::both, Placement::one}, wishes.payloads, {1});
    }
    Figures Run(const Case& chosen, const Effort& effort) const override { return Flow(chosen, effort); }
};

class FanIn : public Scenario {
public:
    std::string Name() const override { return "fan-in"; }
    std::string About() const override { return "Messages from many senders to one receiver; counts the senders"; }
    std::vector<Case> Cases(const Wishes& wishes) const override {
        const std::vector<unsigned> few = {2, 16}, many = {1, 2, 4, 8, 16};
        return Senders(wishes, {Placement::both, Placement::one}, {64}, wishes.effort.quick ? few : many);
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
