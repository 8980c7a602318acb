#include "bench/scenarios/bursts.h"

#include "bench/harness/clock.h"
#include "bench/harness/statistics.h"

namespace bench {

namespace {

constexpr unsigned warmUpRounds = 8;

void repeat(const std::function<void()>& step) {
    for (unsigned i = 0; i < burst; ++i) step();
}

}  // namespace

void Bursts::go(unsigned turn, const std::function<void(unsigned)>& doBurst) const {
    for (unsigned round = 0; round < warmUpRounds + rounds_; ++round) {
        for (unsigned phase = 0; phase < phases_; ++phase) {
            everybody_.wait();
            if (phase == turn) doBurst(round);
        }
    }
    everybody_.wait();
}

void Bursts::takePart(unsigned turn, const std::function<void()>& step) const {
    go(turn, [&](unsigned) { repeat(step); });
}

void Bursts::measure(unsigned turn, const std::function<void()>& step, FigureSheet& sheet) const {
    std::vector<std::uint32_t> times;
    go(turn, [&](unsigned round) {
        const std::uint64_t start = now();
        repeat(step);
        const std::uint64_t passed = now() - start;
        if (round >= warmUpRounds) times.push_back(static_cast<std::uint32_t>(passed));
    });
    sheet.put("median_ns", quantile(times, 0.5) / burst);
    sheet.put("p99_ns", quantile(times, 0.99) / burst);
    sheet.put("messages", static_cast<double>(times.size()) * burst);
}

}  // namespace bench
