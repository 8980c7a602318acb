#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

class RoundTrip : public Scenario {
public:
    std::string Name() const override { return "round-trip"; }
    std::string About() const override { return "A request and its answer, both of the payload's size"; }

    std::vector<Case> Cases(const Wishes& wishes) const override { return CombineForTwo(wishes, Pattern::roundTrip); }

    Figures Run(const Case& chosen, const Effort& effort) const override {
        const auto ask = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Head head = {};
            const auto lap = [&] {
                ++head.number;
                Write(head, end.Outgoing());
                const View answer = end.Request();
                Expect(answer.size == chosen.payload && HeadOf(answer).number == head.number, "a wrong answer");
            };
            TimeLaps(effort, lap, used, sheet);
        };
        const auto serve = [](End& end, unsigned) { end.Serve(); };
        return Converse(*chosen.peer, {Pattern::roundTrip, 2, chosen.payload, chosen.placement, ""}, 1, ask, serve);
    }
};

}  // namespace

std::unique_ptr<Scenario> MakeRoundTrip() {
    return std::make_unique<RoundTrip>();
}

}  // namespace bench
