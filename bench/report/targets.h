#ifndef LINXIPC_BENCH_REPORT_TARGETS_H
#define LINXIPC_BENCH_REPORT_TARGETS_H

#include <iosfwd>

#include "bench/report/record.h"

namespace bench {

/// Prints the targets that LinxIpc has, each with its result, as a table.
void printTargets(std::ostream& out, const Records& records);

}  // namespace bench

#endif
