#ifndef LINXIPC_HOST_ARENA_WORD_H
#define LINXIPC_HOST_ARENA_WORD_H

#include "host/arena/cell.h"

namespace linx {

/// The one type through which processes share memory: 32 bits, because the smallest machine that shares a domain has
/// no wider atomic. Each operation carries its memory order in its name, so that a search lists every order in use.
class Word {
public:
    uint32_t loadRelaxed() const { return value_.load(std::memory_order_relaxed); }
    uint32_t loadAcquire() const { return value_.load(std::memory_order_acquire); }
    uint32_t loadSeqCst() const { return value_.load(std::memory_order_seq_cst); }

    void storeRelaxed(uint32_t to) { value_.store(to, std::memory_order_relaxed); }
    void storeRelease(uint32_t to) { value_.store(to, std::memory_order_release); }
    void storeSeqCst(uint32_t to) { value_.store(to, std::memory_order_seq_cst); }

    uint32_t exchangeSeqCst(uint32_t to) { return value_.exchange(to, std::memory_order_seq_cst); }
    uint32_t addRelaxed(uint32_t n) { return value_.fetch_add(n, std::memory_order_relaxed); }

    /// On failure `expected` becomes the value found, and only that: what its writer wrote before need not show yet.
    bool casSeqCst(uint32_t& expected, uint32_t to) {
        return value_.compare_exchange_strong(expected, to, std::memory_order_seq_cst, std::memory_order_relaxed);
    }

private:
    Cell value_;
};

static_assert(sizeof(Word) == 4 && Cell::is_always_lock_free,
              "a word of the arena must be the same lock-free 32 bits in every process");

}  // namespace linx

#endif
