#ifndef LINXIPC_BENCH_SCENARIOS_SCENARIO_H
#define LINXIPC_BENCH_SCENARIOS_SCENARIO_H

#include <memory>
#include <string>
#include <vector>

#include "bench/harness/effort.h"
#include "bench/harness/figures.h"
#include "bench/peers/peer.h"

namespace bench {

/// One thing to measure: a line of a table. Cases of a scenario that differ in the peer alone are compared.
struct Case {
    const Peer* peer;
    Placement placement;
    std::size_t payload;
    unsigned population;  ///< senders, servers, endpoints, ... as the scenario says; 0 when there is nothing to count
};

/// What the user wants measured.
struct Wishes {
    std::vector<const Peer*> peers;
    std::vector<std::size_t> payloads;
    Effort effort;
};

class Scenario {
public:
    virtual ~Scenario() = default;

    /// One word, for the command line and the results.
    virtual std::string name() const = 0;

    /// One line that says what is measured, and what the population counts.
    virtual std::string about() const = 0;

    virtual std::vector<Case> cases(const Wishes& wishes) const = 0;

    /// How often each case is measured when the user wants `wished` times.
    virtual unsigned repeats(unsigned wished) const { return wished; }

    /// Measures a case once. Throws a Failure when a message was lost, doubled or overtaken.
    virtual Figures run(const Case& chosen, const Effort& effort) const = 0;
};

}  // namespace bench

#endif
