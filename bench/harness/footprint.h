#ifndef LINXIPC_BENCH_HARNESS_FOOTPRINT_H
#define LINXIPC_BENCH_HARNESS_FOOTPRINT_H

#include <string>

namespace bench {

/// What a process takes. Pages that it has shared with its parent since it was forked count as its own all the time,
/// so that writing to one changes nothing.
struct Footprint {
    double own = 0;          ///< bytes of memory that nobody else can have
    double shared = 0;       ///< bytes of shared memory, divided by the processes that have them mapped
    double descriptors = 0;  ///< that it has open
};

/// That of a process, "self" for the caller.
Footprint footprintOf(const std::string& process);

inline Footprint operator+(const Footprint& a, const Footprint& b) {
    return {a.own + b.own, a.shared + b.shared, a.descriptors + b.descriptors};
}
inline Footprint operator-(const Footprint& a, const Footprint& b) {
    return {a.own - b.own, a.shared - b.shared, a.descriptors - b.descriptors};
}

}  // namespace bench

#endif
