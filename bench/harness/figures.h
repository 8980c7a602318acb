#ifndef LINXIPC_BENCH_HARNESS_FIGURES_H
#define LINXIPC_BENCH_HARNESS_FIGURES_H

#include <map>
#include <string>

#include "bench/harness/check.h"

namespace bench {

/// What one run has measured, by name. Names end in their unit.
using Figures = std::map<std::string, double>;

/// Figures on their way from the process that measured, in shared memory.
class FigureSheet {
public:
    void Put(const char* name, double value) {
        Expect(count < room && std::strlen(name) < sizeof lines[0].name, "too many figures");
        std::strcpy(lines[count].name, name);
        lines[count++].value = value;
    }

    Figures Read() const {
        Figures figures;
        for (unsigned i = 0; i < count; ++i) figures[lines[i].name] = lines[i].value;
        return figures;
    }

private:
    static constexpr unsigned room = 16;
    struct Line {
        char name[32];
        double value;
    };
    unsigned count = 0;
    Line lines[room] = {};
};

}  // namespace bench

#endif
