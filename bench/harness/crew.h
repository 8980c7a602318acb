#ifndef LINXIPC_BENCH_HARNESS_CREW_H
#define LINXIPC_BENCH_HARNESS_CREW_H

#include <functional>
#include <vector>

namespace bench {

/// One process of a run.
struct Member {
    /// A principal is done when its body returns; the others serve it without end. When all principals are done, all
    /// are killed.
    enum class Part { principal, servant } part;
    std::function<void()> body;
};

/// To be called once, before any runCrew: has the signals that end this program, and those of its children, wait for
/// runCrew.
void prepareForCrews();

/// Forks a process for each member and waits for the principals. Throws a Failure when a member fails, a servant
/// ends, `seconds` pass or this program is told to end; no process is left in any case.
void runCrew(const std::vector<Member>& members, unsigned seconds = 120);

}  // namespace bench

#endif
