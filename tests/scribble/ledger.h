#ifndef LINXIPC_TESTS_SCRIBBLE_LEDGER_H
#define LINXIPC_TESTS_SCRIBBLE_LEDGER_H

#include <atomic>
#include <cstdint>

namespace scribble {

constexpr uint32_t workerCount = 4;
constexpr uint32_t onlooker = workerCount;  ///< looks at what the workers do, and captures what they send
constexpr uint32_t processCount = workerCount + 1;

/// What workers tell of themselves, outside of the arena.
struct Ledger {
    std::atomic<bool> leave;
    std::atomic<uint32_t> beats[processCount];  ///< operations that have ended, well or not; looks
    std::atomic<uint32_t> met[workerCount];    ///< a bit for each worker of whom something was received
    std::atomic<uint32_t> operations;
    std::atomic<uint32_t> received;
    std::atomic<uint32_t> looks;
    std::atomic<uint32_t> captured;
    std::atomic<uint32_t> failed;
    std::atomic<uint32_t> refusedOpens;
    std::atomic<uint32_t> longestMilliseconds;  ///< that an operation took beyond its time-out
};

}  // namespace scribble

#endif
