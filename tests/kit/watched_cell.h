#ifndef LINXIPC_TESTS_KIT_WATCHED_CELL_H
#define LINXIPC_TESTS_KIT_WATCHED_CELL_H

#include <atomic>
#include <cstdint>

namespace linxtest {

/// What does not matter to a watcher.
struct Unwatched {
    Unwatched() {}
};

/// A word of the arena that somebody watches: an object of the given type lives around each load, each store, and
/// each exchange, addition or comparison.
template <class Load, class Store, class Exchange>
class WatchedCell {
public:
    static constexpr bool is_always_lock_free = std::atomic<uint32_t>::is_always_lock_free;

    uint32_t load(std::memory_order order) const {
        const Load around;
        return value_.load(order);
    }
    void store(uint32_t to, std::memory_order order) {
        const Store around;
        value_.store(to, order);
    }
    uint32_t exchange(uint32_t to, std::memory_order order) {
        const Exchange around;
        return value_.exchange(to, order);
    }
    uint32_t fetch_add(uint32_t n, std::memory_order order) {
        const Exchange around;
        return value_.fetch_add(n, order);
    }
    bool compare_exchange_strong(uint32_t& expected, uint32_t to, std::memory_order success,
                                 std::memory_order failure) {
        const Exchange around;
        return value_.compare_exchange_strong(expected, to, success, failure);
    }

private:
    std::atomic<uint32_t> value_;
};

}  // namespace linxtest

#endif
