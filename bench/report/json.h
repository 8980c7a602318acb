#ifndef LINXIPC_BENCH_REPORT_JSON_H
#define LINXIPC_BENCH_REPORT_JSON_H

#include "bench/report/machine.h"
#include "bench/report/record.h"

namespace bench {

/// Writes everything that was measured, and on what.
void WriteJson(const std::string& file, const Machine& machine, const Records& records);

}  // namespace bench

#endif
