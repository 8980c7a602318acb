#ifndef LINXIPC_DEMO_LEDGER_H
#define LINXIPC_DEMO_LEDGER_H

#include <cstdint>
#include <string>
#include <vector>

#include "demo/report.h"

namespace demo {

/// What has been seen so far, by whom, in the order in which it was reported.
class Ledger {
public:
    void note(e_Process server, Fact fact, std::uint64_t value) { entries_.push_back({server, fact, value}); }

    /// The values that came with a fact, from everybody or from one server.
    std::vector<std::uint64_t> values(Fact fact) const;
    std::vector<std::uint64_t> values(Fact fact, e_Process server) const;

    std::size_t count(Fact fact) const { return values(fact).size(); }
    std::size_t count(Fact fact, e_Process server) const { return values(fact, server).size(); }

    /// Who reported a fact, by name: one or two names, else how many servers.
    std::string witnesses(Fact fact) const;

private:
    struct Entry {
        e_Process server;
        Fact fact;
        std::uint64_t value;
    };
    std::vector<Entry> entries_;
};

}  // namespace demo

#endif
