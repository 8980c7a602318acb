#ifndef LINXIPC_HOST_ARENA_WORD_H
#define LINXIPC_HOST_ARENA_WORD_H

#include "host/arena/cell.h"
#include "host/arena/number_of.h"

namespace linx {

/// A word of the arena is one on which operations depend, unless it only tells whoever looks into the domain what its
/// endpoint does.
struct Watched {
    using Bits = Cell;
};
struct Told {
    using Bits = ToldCell;
};

/// The one type through which processes share memory: 32 bits, because the smallest machine that shares a domain has
/// no wider atomic. Each operation carries its memory order in its name, so that a search lists every order in use.
///
/// `T` is the type of the contents, a number or an enum of that width, so that values of different kinds of words
/// cannot be mixed up. Any bits that others leave in it are a valid `T`.
template <class T, class Kind = Watched>
class WordOf {
public:
    T loadRelaxed() const { return static_cast<T>(value_.load(std::memory_order_relaxed)); }
    T loadAcquire() const { return static_cast<T>(value_.load(std::memory_order_acquire)); }
    T loadSeqCst() const { return static_cast<T>(value_.load(std::memory_order_seq_cst)); }

    void storeRelaxed(T to) { value_.store(numberOf(to), std::memory_order_relaxed); }
    void storeRelease(T to) { value_.store(numberOf(to), std::memory_order_release); }
    void storeSeqCst(T to) { value_.store(numberOf(to), std::memory_order_seq_cst); }

    T exchangeSeqCst(T to) { return static_cast<T>(value_.exchange(numberOf(to), std::memory_order_seq_cst)); }
    T addRelaxed(T n) { return static_cast<T>(value_.fetch_add(numberOf(n), std::memory_order_relaxed)); }

    /// On failure `expected` becomes the value found, relaxed: its writer's earlier stores may not be visible yet.
    bool casSeqCst(T& expected, T to) {
        uint32_t found = numberOf(expected);
        if (value_.compare_exchange_strong(found, numberOf(to), std::memory_order_seq_cst, std::memory_order_relaxed))
            return true;
        expected = static_cast<T>(found);
        return false;
    }

private:
    typename Kind::Bits value_;
};

using Word = WordOf<uint32_t>;

using ToldWord = WordOf<uint32_t, Told>;

static_assert(sizeof(Word) == 4 && Cell::is_always_lock_free,
              "a word of the arena must be the same lock-free 32 bits in every process");

}  // namespace linx

#endif
