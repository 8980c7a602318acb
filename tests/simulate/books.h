#ifndef LINXIPC_TESTS_SIMULATE_BOOKS_H
#define LINXIPC_TESTS_SIMULATE_BOOKS_H

#include <map>
#include <set>

#include "link/session/peer.h"
#include "tests/simulate/trace.h"

namespace simulate {

using linx::link::Bytes;
using linx::link::FarId;
using linx::link::OwnId;

/// One life of one application's endpoint, in the whole world.
using Life = uint64_t;
/// A session as the tag of one direction names it.
using Tag = uint64_t;

/*
 * Knows what no node knows: everything. Throws a Violation when one of the claims does not hold:
 *
 *  1. What a session delivers is what it was given, from whom and to whom it was given.
 *  2. Of one sender to one destination nothing is lost, doubled or overtaken while a session lasts.
 *  3. Nothing of a session arrives in another.
 *  4. An end is told once, not before everything that had been sent, and before the next of the name.
 *  5. What did not arrive when a session ended is counted as lost by who sent it.
 *  6. A destination is never sent more than it gave credit for, and no session holds more than it may.
 *  7. A session ends only for a reason.
 *  8. Once the network is well, everything gets on: the world checks that with isAllThere().
 */
class Books {
public:
    Life born() { return ++lives_; }
    void died(Life life) { dead_.insert(life); }
    bool isDead(Life life) const { return dead_.count(life) != 0; }

    // What goes: `tag` is that of the direction in which it goes.
    void announced(Tag tag, OwnId id, Life life) { lifeOf_[{tag, numberOf(id)}] = life; }
    Life lifeOf(Tag tag, FarId id) const;
    /// The payload that the signal has to have, which says who sent it to whom.
    static Bytes letter(Tag tag, Life from, Life to, uint64_t number, size_t size);
    uint64_t nextNumber(Tag tag, Life from, Life to) { return traffic_[tag][{from, to}].accepted + 1; }
    void accepted(Tag tag, Life from, Life to) { ++traffic_[tag][{from, to}].accepted; }
    void lost(Tag out, Tag in, const std::vector<linx::link::Loss>& losses);

    // What comes.
    void opened(Tag tag, FarId id, const std::string& name);
    void delivered(Tag tag, FarId from, Life to, const Bytes& payload);
    void closed(Tag tag, FarId id);
    void down(Tag tag) { proxies_.erase(tag); }

    /// Everything that was accepted in the session for these destinations is there.
    bool isAllThere(Tag tag, const std::set<Life>& except) const;

    uint64_t signals() const { return signals_; }
    uint64_t notices() const { return notices_; }
    uint64_t losses() const { return losses_; }

private:
    struct Traffic {
        uint64_t accepted = 0;
        uint64_t delivered = 0;
    };

    Life lives_ = 0;
    std::set<Life> dead_;
    std::map<std::pair<Tag, uint32_t>, Life> lifeOf_;
    std::map<Tag, std::map<std::pair<Life, Life>, Traffic>> traffic_;
    std::map<Tag, std::map<FarId, std::string>> proxies_;
    uint64_t signals_ = 0;
    uint64_t notices_ = 0;
    uint64_t losses_ = 0;
};

void claim(bool holds, const char* sentence);

}  // namespace simulate

#endif
