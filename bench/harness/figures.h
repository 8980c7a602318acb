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
    void put(const char* name, double value) {
        expect(count_ < room && std::strlen(name) < sizeof lines_[0].name, "too many figures");
        std::strcpy(lines_[count_].name, name);
        lines_[count_++].value = value;
    }

    Figures read() const {
        Figures figures;
        for (unsigned i = 0; i < count_; ++i) figures[lines_[i].name] = lines_[i].value;
        return figures;
    }

private:
    static constexpr unsigned room = 16;
    struct Line {
        char name[32];
        double value;
    };
    unsigned count_ = 0;
    Line lines_[room] = {};
};

}  // namespace bench

#endif
