#ifndef LINXIPC_TESTS_SCRIBBLE_LEDGER_H
#define LINXIPC_TESTS_SCRIBBLE_LEDGER_H

#include <atomic>
#include <cstdint>

namespace scribble {

constexpr uint32_t workerCount = 4;

/// What workers tell of themselves, outside of the arena.
struct Ledger {
    std::atomic<bool> leave;
    std::atomic<uint32_t> beats[workerCount];  ///< operations that have ended, well or not
    std::atomic<uint32_t> met[workerCount];    ///< a bit for each worker of whom something was received
    std::atomic<uint32_t> operations;
    std::atomic<uint32_t> received;
    std::atomic<uint32_t> failed;
    std::atomic<uint32_t> refusedOpens;
    std::atomic<uint32_t> longestMilliseconds;  ///< that an operation took beyond its time-out
};

}  // namespace scribble

#endif
