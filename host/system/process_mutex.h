#ifndef LINXIPC_HOST_SYSTEM_PROCESS_MUTEX_H
#define LINXIPC_HOST_SYSTEM_PROCESS_MUTEX_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace linx {

/// A mutex for the threads of one process. Free while its memory is zero, which no mutex of the C library promises;
/// it may be unlocked when already free, as happens in a child whose copy the kernel has wiped.
class ProcessMutex {
public:
    // Acquire and release: whoever gets it sees all that was done under it.
    void lock() {
        uint32_t seen = free;
        if (word_.compare_exchange_strong(seen, held, std::memory_order_acquire, std::memory_order_relaxed)) return;
        // Whoever has waited cannot tell whether others still do.
        while (word_.exchange(awaited, std::memory_order_acquire) != free) callKernel(FUTEX_WAIT_PRIVATE, awaited);
    }
    void unlock() {
        if (word_.exchange(free, std::memory_order_release) == awaited) callKernel(FUTEX_WAKE_PRIVATE, 1);
    }

private:
    static constexpr uint32_t free = 0;
    static constexpr uint32_t held = 1;
    static constexpr uint32_t awaited = 2;  ///< held, and threads may wait for it

    /// Has the thread sleep while the word is `number`, or wakes `number` threads. errno stays.
    void callKernel(int operation, uint32_t number) {
        const int keptErrno = errno;
        syscall(SYS_futex, &word_, operation, number, nullptr, nullptr, 0);
        errno = keptErrno;
    }

    std::atomic<uint32_t> word_;
};

}  // namespace linx

#endif
