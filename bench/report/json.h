#ifndef LINXIPC_BENCH_REPORT_JSON_H
#define LINXIPC_BENCH_REPORT_JSON_H

#include "bench/report/machine.h"
#include "bench/report/record.h"

namespace bench {

/// Writes everything that was measured, and on what.
void writeJson(const std::string& file, const Machine& machine, const Records& records);

/// The records that `writeJson` wrote to `file`. Throws a Failure where it holds anything else.
Records readJson(const std::string& file);

}  // namespace bench

#endif
