#ifndef LINXIPC_BENCH_REPORT_MACHINE_H
#define LINXIPC_BENCH_REPORT_MACHINE_H

#include <string>

namespace bench {

/// What the figures were taken on.
struct Machine {
    std::string processor, cores, kernel, compiler, date;
    std::string load;  ///< how many threads wanted a core in the minute before: whether the figures are undisturbed
};

Machine thisMachine();

}  // namespace bench

#endif
