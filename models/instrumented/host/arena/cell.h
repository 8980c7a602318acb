#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include <atomic>
#include <cstdint>

#include "models/machine/memory.h"

namespace linx {

/// A word of the arena under exploration. Stands in for the shipped header of the same path: each access goes to the
/// modelled memory, which decides what it sees and who goes on.
class Cell {
public:
    static constexpr bool is_always_lock_free = true;

    uint32_t load(std::memory_order order) const { return model::load(value_, order); }
    void store(uint32_t to, std::memory_order order) { model::store(value_, to, order); }
    uint32_t exchange(uint32_t to, std::memory_order order) { return model::exchange(value_, to, order); }
    uint32_t fetch_add(uint32_t n, std::memory_order order) { return model::add(value_, n, order); }
    bool compare_exchange_strong(uint32_t& expected, uint32_t to, std::memory_order success,
                                 std::memory_order failure) {
        return model::compareExchange(value_, expected, to, success, failure);
    }

private:
    uint32_t value_;
};

/// No operation reads it: its order is not explored.
using ToldCell = std::atomic<uint32_t>;

}  // namespace linx

#endif
