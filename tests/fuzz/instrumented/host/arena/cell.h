#ifndef LINXIPC_HOST_ARENA_CELL_H
#define LINXIPC_HOST_ARENA_CELL_H

#include <atomic>
#include <cstdint>

#include "tests/fuzz/arena/ambush.h"

namespace linx {

/// A word of the arena that may have changed each time it is looked at. Stands in for the shipped header of the same
/// path.
class Cell {
public:
    static constexpr bool is_always_lock_free = std::atomic<uint32_t>::is_always_lock_free;

    uint32_t load(std::memory_order order) const {
        fuzz::ambush::pass();
        return value_.load(order);
    }
    void store(uint32_t to, std::memory_order order) { value_.store(to, order); }
    uint32_t exchange(uint32_t to, std::memory_order order) {
        fuzz::ambush::pass();
        return value_.exchange(to, order);
    }
    uint32_t fetch_add(uint32_t n, std::memory_order order) {
        fuzz::ambush::pass();
        return value_.fetch_add(n, order);
    }
    bool compare_exchange_strong(uint32_t& expected, uint32_t to, std::memory_order success,
                                 std::memory_order failure) {
        fuzz::ambush::pass();
        return value_.compare_exchange_strong(expected, to, success, failure);
    }

private:
    std::atomic<uint32_t> value_;
};

}  // namespace linx

#endif
