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
    std::string name() const override { return "relay"; }
    std::string about() const override { return "Messages one way, through a process that passes them on"; }

    std::vector<Case> cases(const Wishes& wishes) const override {
        return combine(wishes.peers, Pattern::chain, {Placement::both, Placement::one}, wishes.payloads, {3});
    }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const auto receive = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Sequence sequence(source + 1, chosen.payload);
            countSteps(
                effort, [&] { sequence.follow(end.receive()); }, used, sheet);
        };
        const auto take = [](End& end, unsigned self) { self == relay ? end.forward() : sendNext(end, self); };
        return converse(*chosen.peer, {Pattern::chain, 3, chosen.payload, chosen.placement, ""}, sink, receive, take);
    }
};

}  // namespace

std::unique_ptr<Scenario> makeRelay() {
    return std::make_unique<Relay>();
}

}  // namespace bench
