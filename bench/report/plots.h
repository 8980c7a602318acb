#ifndef LINXIPC_BENCH_REPORT_PLOTS_H
#define LINXIPC_BENCH_REPORT_PLOTS_H

#include <string>

#include "bench/report/record.h"

namespace bench {

/// What gnuplot is told in order to draw what was measured, as SVG files in `directory`. Each peer has its colour and
/// shape, in all plots the same; legends are in the order of the curves.
std::string plotScript(const std::string& directory, const Records& records);

/// Has gnuplot draw what was measured, as SVG files in `directory`, which is made if need be.
void drawPlots(const std::string& directory, const Records& records);

}  // namespace bench

#endif
