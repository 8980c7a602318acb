#ifndef LINXIPC_BENCH_REPORT_FIND_H
#define LINXIPC_BENCH_REPORT_FIND_H

#include "bench/report/record.h"

namespace bench {

/// Which case a figure is wanted of.
struct Query {
    std::string scenario;
    std::string peer;
    Placement placement;
    std::size_t payload;
    unsigned population;
};

/// A figure of every run; empty when it was not measured.
inline std::vector<double> find(const Records& records, const Query& query, const std::string& figure) {
    for (const Record& record : records) {
        if (record.scenario != query.scenario || record.peer != query.peer || record.placement != query.placement ||
            record.payload != query.payload || record.population != query.population) {
            continue;
        }
        const auto found = record.spreads.find(figure);
        if (found != record.spreads.end()) return found->second.runs;
    }
    return {};
}

}  // namespace bench

#endif
