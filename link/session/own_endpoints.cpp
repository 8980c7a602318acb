#include "link/session/own_endpoints.h"

#include <algorithm>

#include "link/session/charge.h"
#include "link/session/settings.h"

namespace linx::link {

std::optional<OwnId> OwnEndpoints::announce(const std::string& name, uint32_t credit) {
    if (!isName(name) || endpoints_.size() >= mostEndpoints || next_ == UINT32_MAX) return std::nullopt;
    if (!names_.insert(name).second) return std::nullopt;
    const uint32_t number = next_++;
    OwnEndpoint& endpoint = endpoints_[number];
    endpoint.name = name;
    endpoint.credit = std::clamp(credit, leastCredit, mostCredit);
    endpoint.allowed = endpoint.credit;
    Note note = {Type::announcement, number, openFrame()};
    write(Writer(note.frame), Announcement{name, endpoint.credit});
    notes_.push_back(std::move(note));
    return OwnId(number);
}

void OwnEndpoints::end(OwnId id) {
    OwnEndpoint* const endpoint = find(id);
    if (endpoint == nullptr || endpoint->hasEnded) return;
    endpoint->hasEnded = true;
    endpoint->partial.reset();
    giveBack(id, *endpoint, endpoint->charged - endpoint->consumed);
    if (endpoint->unsent == 0) tellEnd(numberOf(id), *endpoint);
}

void OwnEndpoints::tellEnd(uint32_t number, OwnEndpoint& endpoint) {
    notes_.push_back({Type::end, number, openFrame()});
    names_.erase(endpoint.name);
}

void OwnEndpoints::holdBack(OwnId id) {
    ++find(id)->unsent;
}

void OwnEndpoints::letGo(OwnId id) {
    OwnEndpoint* const endpoint = find(id);
    if (--endpoint->unsent == 0 && endpoint->hasEnded) tellEnd(numberOf(id), *endpoint);
}

bool OwnEndpoints::isAlive(OwnId id) const {
    const auto found = endpoints_.find(numberOf(id));
    return found != endpoints_.end() && !found->second.hasEnded;
}

OwnEndpoint* OwnEndpoints::find(OwnId id) {
    const auto found = endpoints_.find(numberOf(id));
    return found == endpoints_.end() ? nullptr : &found->second;
}

bool OwnEndpoints::charge(OwnId id, size_t payload) {
    OwnEndpoint& endpoint = *find(id);
    const uint64_t charge = chargeOf(payload, endpoint.credit);
    endpoint.charged += charge;
    if (endpoint.charged > endpoint.allowed) return false;
    if (endpoint.hasEnded) giveBack(id, endpoint, charge);
    return true;
}

void OwnEndpoints::consumed(OwnId id, size_t payload) {
    OwnEndpoint* const endpoint = find(id);
    if (endpoint == nullptr || endpoint->hasEnded) return;
    giveBack(id, *endpoint, chargeOf(payload, endpoint->credit));
}

void OwnEndpoints::giveBack(OwnId id, OwnEndpoint& endpoint, uint64_t charge) {
    endpoint.consumed += std::min(charge, endpoint.charged - endpoint.consumed);
    // Few and large steps; but a sender may wait for all that there is, so the last crumb is told too.
    const uint64_t more = endpoint.consumed + endpoint.credit - endpoint.allowed;
    const bool isAllBack = endpoint.consumed == endpoint.charged;
    if (endpoint.isCreditDue || more == 0 || (more < endpoint.credit / 4 && !isAllBack)) return;
    endpoint.isCreditDue = true;
    creditDue_.push_back(id);
}

std::optional<OwnId> OwnEndpoints::takeDueCredit() {
    while (!creditDue_.empty()) {
        const OwnId id = creditDue_.front();
        creditDue_.pop_front();
        OwnEndpoint* const endpoint = find(id);
        if (endpoint == nullptr) continue;
        endpoint->isCreditDue = false;
        endpoint->allowed = endpoint->consumed + endpoint->credit;
        return id;
    }
    return std::nullopt;
}

size_t OwnEndpoints::partials() const {
    return static_cast<size_t>(std::count_if(endpoints_.begin(), endpoints_.end(),
                                             [](const auto& entry) { return entry.second.partial.has_value(); }));
}

}  // namespace linx::link
