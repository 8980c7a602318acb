#ifndef LINXIPC_BENCH_REPORT_JUDGEMENT_H
#define LINXIPC_BENCH_REPORT_JUDGEMENT_H

#include <iosfwd>

#include "bench/report/record.h"

namespace bench {

/// Prints what is wanted of LinxIpc and what it got, a line each: figures of one run, mostly compared with each
/// other.
void printJudgement(std::ostream& out, const Records& records);

}  // namespace bench

#endif
