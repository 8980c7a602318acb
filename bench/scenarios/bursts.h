#ifndef LINXIPC_BENCH_SCENARIOS_BURSTS_H
#define LINXIPC_BENCH_SCENARIOS_BURSTS_H

#include <functional>
#include <vector>

#include "bench/harness/barrier.h"
#include "bench/harness/effort.h"
#include "bench/harness/figures.h"

namespace bench {

constexpr unsigned burst = 32;  // fits every queue, and the caches

/// Processes that take turns: each does `burst` steps while the others wait for their turn, so that a step is
/// measured without any waiting for others in it.
class Bursts {
public:
    Bursts(unsigned processes, const Effort& chosen)
        : everybody_(processes),
          phases_(processes),
          rounds_(static_cast<unsigned>(chosen.quick ? chosen.measured.messages / burst : 400)) {}

    /// Called in each process, with its turn in the round: 0 goes first.
    void takePart(unsigned turn, const std::function<void()>& step) const;

    /// The same in the process that is measured: median_ns, p99_ns of one step, and messages.
    void measure(unsigned turn, const std::function<void()>& step, FigureSheet& sheet) const;

private:
    void go(unsigned turn, const std::function<void(unsigned round)>& doBurst) const;

    Barrier everybody_;
    unsigned phases_;
    unsigned rounds_;
};

}  // namespace bench

#endif
