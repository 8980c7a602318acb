#ifndef LINXIPC_BENCH_REPORT_TABLE_H
#define LINXIPC_BENCH_REPORT_TABLE_H

#include <iosfwd>

#include "bench/report/record.h"

namespace bench {

/// Prints the records of one scenario, figures in the columns, medians over the runs. As Markdown, which reads well
/// on a terminal too.
void printTable(std::ostream& out, const Scenario& scenario, const Records& records);

}  // namespace bench

#endif
