#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

constexpr unsigned sink = 0, relay = 1, source = 2;

/// A stream with somebody in the middle.
class Relay : public Scenario {
public:
    std::string Name() const override { return "relay"; }
    std::string About() const override { return "Messages one way, through a process that passes them on"; }

    std::vector<Case> Cases(const Wishes& wishes) const override {
        return Combine(wishes.peers, Pattern::chain, {Placement::both, Placement::one}, wishes.payloads, {3});
    }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const auto receive = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Sequence sequence(source + 1, chosen.payload);
            CountSteps(
                effort, [&] { sequence.Follow(end.Receive()); }, used, sheet);
        };
        const auto take = [](End& end, unsigned self) { self == relay ? end.Forward() : SendNext(end, self); };
        return Converse(*chosen.peer, {Pattern::chain, 3, chosen.payload, chosen.placement, ""}, sink, receive, take);
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeRelay() {
    return std::make_unique<Relay>();
}

}  // namespace bench
