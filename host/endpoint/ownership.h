#ifndef LINXIPC_HOST_ENDPOINT_OWNERSHIP_H
#define LINXIPC_HOST_ENDPOINT_OWNERSHIP_H

#include <atomic>

#include "host/endpoint/identity.h"
#include "host/system/forks.h"

namespace linx {

/// Which process has an endpoint, and whether one of its threads is inside an operation.
///
/// After a fork both processes hold a copy of the same object. The endpoint goes to whichever of the two enters
/// first, unless the child was made while a thread was inside: nobody knows what state its copy is in.
class Ownership {
public:
    explicit Ownership(const Identity& self);

    enum class Entry {
        entered,
        occupied,  ///< another thread is inside
        copied,    ///< in a child that was made while a thread was inside: nothing else of the copy may be touched
        lost       ///< entered, but the endpoint is another process's
    };

    /// Begins an operation. It ends with exit() if it was entered.
    Entry enter();
    void exit() { entry_.store(nextEntry_, std::memory_order_relaxed); }

    /// Begins one if there is no doubt that it may. False leaves all as it was.
    bool enterAtOnce();

    /// Whether an operation could begin at once.
    bool isIdle() const { return entry_.load(std::memory_order_relaxed) == forks::stamp(); }

    /// While something is owed before the next operation, none begins at once.
    void setOverdue(bool isOverdue) {
        nextEntry_ = isOverdue ? overdue : forksSeen_;
        if (entry_.load(std::memory_order_relaxed) != inside) exit();
    }

    enum class Departure {
        refused,   ///< another thread is inside
        stays,     ///< the endpoint is another process's; the object goes
        leaves,    ///< the endpoint ends with the object; only the copy does if it is disowned
        forgotten  ///< as `copied`: nobody may touch the copy any more, not even to destroy it
    };

    /// Begins the last operation, before the end of the object.
    Departure leave();

    /// Whether this copy has given the endpoint up to another process, for good.
    bool isDisowned() const { return disowned_; }

private:
    bool occupy(uint32_t& stamp);
    bool claim(uint32_t stamp);
    bool isMaker() const;

    static constexpr uint32_t inside = forks::reserved + 1;   ///< a thread is inside an operation
    static constexpr uint32_t overdue = forks::reserved + 2;  ///< before the next operation something is owed

    const Identity self_;
    std::atomic<uint32_t> entry_;  ///< the stamp with which one may enter, or one of the two above
    uint32_t nextEntry_;           ///< what it becomes after the operation
    uint32_t forksSeen_;           ///< the stamp that the process had when the endpoint was made or claimed
    uint32_t generation_;          ///< of the process that has the endpoint
    uint32_t forkRound_;
    bool disowned_ = false;
};

inline bool Ownership::enterAtOnce() {
    const uint32_t entry = entry_.load(std::memory_order_relaxed);
    if (entry == inside) return false;
    entry_.store(inside, std::memory_order_relaxed);
    forks::afterEntering();
    if (entry == forks::stamp()) return true;
    entry_.store(entry, std::memory_order_relaxed);
    return false;
}

}  // namespace linx

#endif
