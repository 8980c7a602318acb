#include "link/proxies/parcels.h"

#include "platform/linx_link.h"

namespace linx::link {

std::optional<Parcels::Parcel> Parcels::take(const LinxSignal* signal) {
    const auto found = all_.find(signal);
    if (found == all_.end()) return std::nullopt;
    const Parcel parcel = found->second;
    all_.erase(found);
    return parcel;
}

std::vector<Parcels::Parcel> Parcels::takeHome(LINX* witness) {
    std::vector<Parcel> home;
    for (auto one = all_.begin(); one != all_.end();) {
        if (linx_is_away(witness, one->first, one->second.proxy) != 0) {
            ++one;
            continue;
        }
        home.push_back(one->second);
        one = all_.erase(one);
    }
    return home;
}

}  // namespace linx::link
