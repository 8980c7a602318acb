#ifndef LINXIPC_BENCH_REPORT_PLOTS_H
#define LINXIPC_BENCH_REPORT_PLOTS_H

#include "bench/report/record.h"

namespace bench {

/// Has gnuplot draw what was measured, as SVG files in `directory`, which is made if need be.
void DrawPlots(const std::string& directory, const Records& records);

}  // namespace bench

#endif
