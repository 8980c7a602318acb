#ifndef LINXIPC_LINK_PROXIES_RULES_H
#define LINXIPC_LINK_PROXIES_RULES_H

#include <string>
#include <vector>

namespace linx::link {

/// What the peer of a link may do here.
struct Rules {
    std::vector<std::string> exports;  ///< names, and beginnings of names with `*` behind
    bool transit = false;
    bool allowControl = false;

    /// Whether it may hunt for the name.
    bool mayHunt(const std::string& name) const;
    /// Whether a signal of this number may come from it: an order to shut down, or the end of another process, would
    /// end whatever it reaches.
    bool maySend(uint32_t number) const;
};

}  // namespace linx::link

#endif
