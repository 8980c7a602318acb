#ifndef LINXIPC_LINK_SESSION_OWN_ENDPOINTS_H
#define LINXIPC_LINK_SESSION_OWN_ENDPOINTS_H

#include <deque>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "link/session/events.h"
#include "link/session/frame.h"

namespace linx::link {

/// A frame that only lacks its tag and sequence. They leave in the order in which they were put down, before signals.
struct Note {
    Type type = Type::seek;
    uint32_t channel = 0;
    Bytes frame;
};
using Notes = std::deque<Note>;

/// A large signal of which not everything is there yet.
struct Partial {
    FarId from = {};
    uint32_t number = 0;
    size_t size = 0;
    Bytes payload;
};

/// An endpoint of this node that the far side knows: who sends from here, and where signals from there go.
struct OwnEndpoint {
    std::string name;
    uint32_t credit = 0;    ///< that the far side has when nothing is on its way to this endpoint
    uint64_t charged = 0;   ///< taken of it by signals that have come
    uint64_t consumed = 0;  ///< and given back by signals that the endpoint has done with
    uint64_t allowed = 0;   ///< what `charged` may come to, as the far side was told
    uint64_t unsent = 0;    ///< signals from here that wait for their turn
    bool hasEnded = false;
    bool isCreditDue = false;
    std::optional<Partial> partial;
};

/// The table of them. An end is told when the last signal of the endpoint is on its way; the name is free from then
/// on. Until then it gives back at once the credit for what still comes for it: two that have ended may wait for each
/// other's.
class OwnEndpoints {
public:
    explicit OwnEndpoints(Notes& notes) : notes_(notes) {}

    /// Nothing when there are as many as the far side may know of, or the end of the last one of this name is not
    /// told yet: to be tried again later.
    std::optional<OwnId> announce(const std::string& name, uint32_t credit);
    void end(OwnId id);
    /// Its END has left: nothing more is known of it.
    void endIsTold(OwnId id) { endpoints_.erase(numberOf(id)); }

    /// A signal from it waits; and the same one is on its way, or nowhere.
    void holdBack(OwnId id);
    void letGo(OwnId id);

    bool isAlive(OwnId id) const;
    /// Null when it has ended or never was; wasAnnounced() tells which.
    OwnEndpoint* find(OwnId id);
    bool wasAnnounced(OwnId id) const { return numberOf(id) != 0 && numberOf(id) < next_; }

    /// A signal of so many bytes has come for it. False when it has no credit for that.
    bool charge(OwnId id, size_t payload);
    /// It has done with a signal of so many bytes.
    void consumed(OwnId id, size_t payload);
    /// An endpoint whose credit is to be told, and which is not asked about again until there is more.
    std::optional<OwnId> takeDueCredit();

    size_t partials() const;

private:
    void tellEnd(uint32_t number, OwnEndpoint& endpoint);
    void giveBack(OwnId id, OwnEndpoint& endpoint, uint64_t charge);

    Notes& notes_;
    std::unordered_map<uint32_t, OwnEndpoint> endpoints_;
    std::unordered_set<std::string> names_;
    std::deque<OwnId> creditDue_;
    uint32_t next_ = 1;
};

}  // namespace linx::link

#endif
