#include "bench/scenarios/choose.h"
#include "bench/scenarios/laps.h"
#include "bench/scenarios/list.h"
#include "bench/scenarios/sequence.h"

namespace bench {

namespace {

class RoundTrip : public Scenario {
public:
    std::string name() const override { return "round-trip"; }
    std::string about() const override { return "A request and its answer, both of the payload's size"; }

    std::vector<Case> cases(const Wishes& wishes) const override { return combineForTwo(wishes, Pattern::roundTrip); }

    Figures run(const Case& chosen, const Effort& effort) const override {
        const auto ask = [&](End& end, const ProcessorMeter& used, FigureSheet& sheet) {
            Head head = {};
            const auto lap = [&] {
                ++head.number;
                write(head, end.outgoing());
                const View answer = end.request();
                expect(answer.size == chosen.payload && headOf(answer).number == head.number, "a wrong answer");
            };
            timeLaps(effort, lap, used, sheet);
        };
        const auto serve = [](End& end, unsigned) { end.serve(); };
        return converse(*chosen.peer, {Pattern::roundTrip, 2, chosen.payload, chosen.placement, ""}, 1, ask, serve);
    }
};

}  // namespace

std::unique_ptr<Scenario> makeRoundTrip() {
    return std::make_unique<RoundTrip>();
}

}  // namespace bench
