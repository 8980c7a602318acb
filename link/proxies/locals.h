#ifndef LINXIPC_LINK_PROXIES_LOCALS_H
#define LINXIPC_LINK_PROXIES_LOCALS_H

#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "link/session/events.h"
#include "platform/linx.h"

namespace linx::link {

/// An endpoint of this domain that the far side knows, or is about to.
struct Local {
    std::string name;
    std::optional<OwnId> id;  ///< nothing before it could be announced
    bool hasEnded = false;
    std::set<FarId> marks;  ///< whose proxies have still to come past the end of what it had sent
};

/// The table of them, by the spids that they have here and by the numbers that the far side knows them by.
class Locals {
public:
    Local& add(LinxSpid spid, const std::string& name) {
        Local& local = all_[spid];
        local.name = name;
        return local;
    }
    Local* find(LinxSpid spid) {
        const auto found = all_.find(spid);
        return found == all_.end() ? nullptr : &found->second;
    }
    void number(LinxSpid spid, OwnId id) {
        all_[spid].id = id;
        spids_[id] = spid;
    }
    /// 0 when there is none.
    LinxSpid spidOf(OwnId id) const {
        const auto found = spids_.find(id);
        return found == spids_.end() ? 0 : found->second;
    }
    /// Those whose end waits for that proxy.
    std::vector<LinxSpid> markedIn(FarId id) const {
        std::vector<LinxSpid> spids;
        for (const auto& [spid, local] : all_) {
            if (local.marks.count(id) != 0) spids.push_back(spid);
        }
        return spids;
    }
    void remove(LinxSpid spid) {
        const auto found = all_.find(spid);
        if (found == all_.end()) return;
        if (found->second.id) spids_.erase(*found->second.id);
        all_.erase(found);
    }
    void clear() {
        all_.clear();
        spids_.clear();
    }

private:
    std::unordered_map<LinxSpid, Local> all_;
    std::map<OwnId, LinxSpid> spids_;
};

}  // namespace linx::link

#endif
