#include "bench/scenarios/bursts.h"

#include "bench/harness/clock.h"
#include "bench/harness/statistics.h"

namespace bench {

namespace {

constexpr unsigned warmUpRounds = 8;

void Burst(const std::function<void()>& step) {
    for (unsigned i = 0; i < burst; ++i) step();
}

}  // namespace

void Bursts::Go(unsigned turn, const std::function<void(unsigned)>& doBurst) const {
    for (unsigned round = 0; round < warmUpRounds + rounds; ++round) {
        for (unsigned phase = 0; phase < phases; ++phase) {
            everybody.Wait();
            if (phase == turn) doBurst(round);
        }
    }
    everybody.Wait();
}

void Bursts::TakePart(unsigned turn, const std::function<void()>& step) const {
    Go(turn, [&](unsigned) { Burst(step); });
}

void Bursts::Measure(unsigned turn, const std::function<void()>& step, FigureSheet& sheet) const {
    std::vector<std::uint32_t> times;
    Go(turn, [&](unsigned round) {
        const std::uint64_t start = Now();
        Burst(step);
        const std::uint64_t passed = Now() - start;
        if (round >= warmUpRounds) times.push_back(static_cast<std::uint32_t>(passed));
    });
    sheet.Put("median_ns", Quantile(times, 0.5) / burst);
    sheet.Put("p99_ns", Quantile(times, 0.99) / burst);
    sheet.Put("messages", static_cast<double>(times.size()) * burst);
}

}  // namespace bench
