#ifndef LINXIPC_HOST_RECOVERY_SLOT_SET_H
#define LINXIPC_HOST_RECOVERY_SLOT_SET_H

#include <algorithm>
#include <array>

#include "host/arena/slot_table.h"

namespace linx {

/// Endpoints that are to end together. Needs no memory but its own, so that it can be filled when there is none.
class SlotSet {
public:
    explicit SlotSet(const Arena& arena) : arena_(arena) {}

    /// REQUIRES an open endpoint, which stays open while the set is asked.
    void insert(Spid spid) { bits_[wordOf(spid)] |= bitOf(spid); }

    bool contains(Spid spid) const {
        return (bits_[wordOf(spid)] & bitOf(spid)) != 0 &&
               arena_.slot(indexOf(spid)).life.loadRelaxed() == openAs(spid);
    }

    bool empty() const {
        return std::all_of(bits_.begin(), bits_.end(), [](uint32_t bits) { return bits == 0; });
    }

    /// Calls `visit(spid)` for each.
    template <class Visit>
    void forEach(Visit visit) const {
        for (uint32_t word = 0; word < bits_.size(); ++word) {
            for (uint32_t bits = bits_[word]; bits != 0; bits &= bits - 1) {
                const SlotIndex index{word * 32 + static_cast<uint32_t>(__builtin_ctz(bits))};
                visit(spidOf(arena_.slot(index).life.loadRelaxed()));
            }
        }
    }

private:
    static uint32_t wordOf(Spid spid) { return numberOf(indexOf(spid)) / 32; }
    static uint32_t bitOf(Spid spid) { return 1u << numberOf(indexOf(spid)) % 32; }

    const Arena& arena_;
    std::array<uint32_t, slotCount / 32> bits_{};
};

}  // namespace linx

#endif
