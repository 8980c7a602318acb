#include "demo/ledger.h"

#include <set>

#include "demo/roster.h"

namespace demo {

std::vector<std::uint64_t> Ledger::values(Fact fact) const {
    std::vector<std::uint64_t> values;
    for (const Entry& entry : entries_) {
        if (entry.fact == fact) values.push_back(entry.value);
    }
    return values;
}

std::vector<std::uint64_t> Ledger::values(Fact fact, e_Process server) const {
    std::vector<std::uint64_t> values;
    for (const Entry& entry : entries_) {
        if (entry.fact == fact && entry.server == server) values.push_back(entry.value);
    }
    return values;
}

std::string Ledger::witnesses(Fact fact) const {
    std::set<std::string> names;
    for (const Entry& entry : entries_) {
        if (entry.fact == fact) names.insert(nameOf(entry.server));
    }
    if (names.empty()) return "nobody";
    if (names.size() > 2) return std::to_string(names.size()) + " servers";
    return names.size() == 1 ? *names.begin() : *names.begin() + ", " + *names.rbegin();
}

}  // namespace demo
