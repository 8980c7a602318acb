#include "bench/harness/statistics.h"

#include <algorithm>

namespace bench {

double quantile(std::vector<std::uint32_t>& samples, double part) {
    const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + rank, samples.end());
    return samples[static_cast<std::size_t>(rank)];
}

Spread spreadOf(std::vector<double> values) {
    std::vector<double> runs = values;
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    const double median = values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
    return {median, values.front(), values.back(), std::move(runs)};
}

Spreads spreadsOf(const std::vector<Figures>& runs) {
    std::map<std::string, std::vector<double>> columns;
    for (const Figures& run : runs) {
        for (const auto& [name, value] : run) columns[name].push_back(value);
    }
    Spreads spreads;
    for (const auto& [name, values] : columns) spreads[name] = spreadOf(values);
    return spreads;
}

}  // namespace bench
