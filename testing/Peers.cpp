#include "testing/Peers.h"

#include <algorithm>
#include <utility>

namespace linx::testing {

namespace {

/// Takes out of `list` all that fit, in their order.
template <typename Entry, typename Fits>
std::list<Entry> takeIf(std::list<Entry>& list, Fits fits) {
    std::list<Entry> taken;
    for (auto entry = list.begin(); entry != list.end();) {
        const auto next = std::next(entry);
        if (fits(*entry)) taken.splice(taken.end(), list, entry);
        entry = next;
    }
    return taken;
}

}  // namespace

LinxSpid Peers::add(const std::string& name) {
    const LinxSpid spid = newSpid();
    names_[spid] = name;
    present_[name] = spid;
    answers_[name] = {spid};
    return spid;
}

LinxSpid Peers::end(const std::string& name) {
    const auto peer = present_.find(name);
    if (peer == present_.end()) return 0;
    const LinxSpid spid = peer->second;
    present_.erase(peer);
    answers_.erase(name);
    ended_.insert(spid);
    return spid;
}

const std::string* Peers::nameOf(LinxSpid spid) const {
    const auto known = names_.find(spid);
    return known != names_.end() ? &known->second : nullptr;
}

void Peers::answerHunts(const std::string& name, std::initializer_list<LinxSpid> spids) {
    answers_[name] = spids;
}

std::optional<LinxSpid> Peers::find(const std::string& name) {
    const auto known = answers_.find(name);
    if (known == answers_.end() || known->second.empty()) return std::nullopt;
    std::deque<LinxSpid>& spids = known->second;
    const LinxSpid found = spids.front();
    if (spids.size() > 1) spids.pop_front();
    return found;
}

std::list<Peers::Hunt> Peers::takeHunts(const std::string& name) {
    return takeIf(hunts_, [&name](const Hunt& hunt) { return hunt.name == name; });
}

std::list<Peers::Notice> Peers::takeNotices(LinxSpid spid) {
    return takeIf(notices_, [spid](const Notice& notice) { return notice.spid == spid; });
}

std::list<Peers::Hunt> Peers::takeAllHunts() {
    return std::exchange(hunts_, {});
}

}  // namespace linx::testing
