#ifndef LINXIPC_BENCH_REPORT_SERIES_H
#define LINXIPC_BENCH_REPORT_SERIES_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "bench/report/find.h"

namespace bench {

using Runs = std::vector<double>;

/// A figure of every run, looked up or computed from others; empty where something in it was not measured.
using Series = std::function<Runs(const Records&)>;

inline Series measured(Query query, const char* figure) {
    return [query = std::move(query), figure](const Records& records) { return find(records, query, figure); };
}

/// Two figures put together round by round: runs of one round follow each other closely and meet the machine in the
/// same state, those of different rounds need not. A median is to be taken last.
template <class Operation>
Series roundByRound(Series left, Series right, Operation operation) {
    return [=](const Records& records) {
        const Runs some = left(records), others = right(records);
        Runs result;
        for (std::size_t i = 0; i < some.size() && some.size() == others.size(); ++i) {
            result.push_back(operation(some[i], others[i]));
        }
        return result;
    };
}

inline Series operator/(Series left, Series right) {
    return roundByRound(std::move(left), std::move(right), std::divides<>());
}

inline Series operator/(Series figure, double divisor) {
    return [=](const Records& records) {
        Runs runs = figure(records);
        for (double& run : runs) run /= divisor;
        return runs;
    };
}

inline Series operator+(Series left, Series right) {
    return roundByRound(std::move(left), std::move(right), std::plus<>());
}

inline Series lesser(Series left, Series right) {
    return roundByRound(std::move(left), std::move(right), [](double a, double b) { return std::min(a, b); });
}

}  // namespace bench

#endif
