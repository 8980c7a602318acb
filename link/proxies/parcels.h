#ifndef LINXIPC_LINK_PROXIES_PARCELS_H
#define LINXIPC_LINK_PROXIES_PARCELS_H

#include <unordered_map>
#include <vector>

#include "link/session/events.h"
#include "platform/linx.h"

namespace linx::link {

/// Signals that proxies have handed on and that have not come home: each counts against what the far side may send to
/// its destination until whoever has it frees it.
class Parcels {
public:
    struct Parcel {
        LinxSpid proxy = 0;
        OwnId to = {};
        size_t payload = 0;
    };

    void add(const LinxSignal* signal, const Parcel& parcel) { all_[signal] = parcel; }
    /// The one that was sent from this address before has come home, if there was one: a proxy has been given the
    /// memory anew.
    std::optional<Parcel> take(const LinxSignal* signal);
    /// Those that have come home, asking by any endpoint.
    std::vector<Parcel> takeHome(LINX* witness);

    bool empty() const { return all_.empty(); }
    void clear() { all_.clear(); }

private:
    std::unordered_map<const LinxSignal*, Parcel> all_;
};

}  // namespace linx::link

#endif
