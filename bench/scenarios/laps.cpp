#include "bench/scenarios/laps.h"

#include <algorithm>
#include <limits>

#include "bench/harness/clock.h"
#include "bench/harness/statistics.h"

namespace bench {

namespace {

constexpr std::size_t mostSamples = std::size_t{1} << 22;
constexpr std::uint64_t stepsPerLook = 64;  // at the clock, which costs as much as a quick step

void putCentral(FigureSheet& sheet, std::uint64_t messages, std::uint64_t processor) {
    sheet.put("cpu_ns", static_cast<double>(processor) / static_cast<double>(messages));
    sheet.put("messages", static_cast<double>(messages));
}

std::uint64_t stepFor(const Stretch& stretch, const std::function<void()>& step) {
    const std::uint64_t end = now() + stretch.nanoseconds;
    std::uint64_t steps = 0;
    do {
        for (std::uint64_t i = 0; i < stepsPerLook; ++i) step();
        steps += stepsPerLook;
    } while (steps < stretch.messages || now() < end);
    return steps;
}

}  // namespace

void timeLaps(const Effort& effort, const std::function<void()>& lap, const ProcessorMeter& used,
              FigureSheet& sheet) {
    std::vector<std::uint32_t> times(mostSamples);  // touched before the measuring begins
    stepFor(effort.warmUp, lap);
    const std::uint64_t usedBefore = used();
    const std::uint64_t start = now();
    std::uint64_t time = start;
    std::size_t laps = 0;
    while (laps < mostSamples && (laps < effort.measured.messages || time - start < effort.measured.nanoseconds)) {
        lap();
        const std::uint64_t present = now();
        times[laps++] = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(present - time, std::numeric_limits<std::uint32_t>::max()));
        time = present;
    }
    const std::uint64_t usedAfter = used();
    times.resize(laps);
    sheet.put("median_ns", quantile(times, 0.5));
    sheet.put("p99_ns", quantile(times, 0.99));
    putCentral(sheet, laps, usedAfter - usedBefore);
}

void countSteps(const Effort& effort, const std::function<void()>& step, const ProcessorMeter& used,
                FigureSheet& sheet) {
    stepFor(effort.warmUp, step);
    const std::uint64_t usedBefore = used();
    const std::uint64_t start = now();
    const std::uint64_t steps = stepFor(effort.measured, step);
    const std::uint64_t passed = now() - start;
    const std::uint64_t usedAfter = used();
    sheet.put("rate_per_s", static_cast<double>(steps) * 1e9 / static_cast<double>(passed));
    putCentral(sheet, steps, usedAfter - usedBefore);
}

}  // namespace bench
