#ifndef LINXIPC_TESTS_CALLS_DIRECTOR_H
#define LINXIPC_TESTS_CALLS_DIRECTOR_H

#include <vector>

#include "tests/calls/fault.h"

namespace calls {

/// Decides what becomes of each call of an operation that a fault befalls, and writes the calls down.
class Director {
public:
    explicit Director(const Fault& fault) : fault_(fault) {}

    Decision decide(const Call& call);

    const std::vector<const KnownCall*>& calls() const { return calls_; }

    /// The numbers of calls of which nothing is known.
    const std::vector<uint64_t>& unknown() const { return unknown_; }

    /// Whether the operation has come to the site.
    bool hasReached() const { return reached_; }

    /// Whether a file is left because it could not be removed.
    bool hasRefusedRemoval() const { return refusedRemoval_; }

private:
    void begin(const Call& call);
    Decision decideAtSite(bool done);
    Decision failure(bool done);

    const Fault fault_;
    std::vector<const KnownCall*> calls_;
    std::vector<uint64_t> unknown_;
    const KnownCall* line_ = nullptr;  ///< of the call that is being made
    bool isSite_ = false;
    uint32_t seen_ = 0;  ///< of the site's line
    bool reached_ = false;
    uint32_t interruptions_ = 0;
    bool refusedRemoval_ = false;
};

}  // namespace calls

#endif
