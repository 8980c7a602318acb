#ifndef LINXIPC_TESTS_STORM_LEDGER_H
#define LINXIPC_TESTS_STORM_LEDGER_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/processes/support/shared.h"
#include "tests/storm/letter.h"

namespace storm {

constexpr uint32_t workerCount = 8;
constexpr uint32_t maxLives = 1u << 14;  ///< that anybody can still have to do with

/// What a life has sent to one other: written before and after each send, so that it outlives the sender.
struct Outgoing {
    std::atomic<uint32_t> peer;  ///< spid
    std::atomic<uint32_t> begun[kinds];
    std::atomic<uint32_t> sent[kinds];
};

/// One incarnation of a worker's endpoint. Lives are numbered from 1; life 0 is nobody's.
struct Life {
    std::atomic<uint32_t> worker;
    std::atomic<uint32_t> process;
    std::atomic<uint32_t> previous;  ///< of the same worker
    std::atomic<uint32_t> spid;      ///< 0 while it opens
    std::atomic<bool> closing;
    Outgoing to[workerCount];
};

/// What all processes of the storm know of each other besides what they send: memory that they share, and that keeps
/// what the killed have written.
struct Ledger {
    std::atomic<uint32_t> latest[workerCount];  ///< life
    std::atomic<uint32_t> beats[workerCount];   ///< counts each worker's progress
    std::atomic<bool> settled[workerCount];     ///< all that was sent to the worker has come, nothing is awaited

    std::atomic<bool> finish;  ///< nobody asks any more
    std::atomic<bool> leave;   ///< nobody sends any more
    Count standing;            ///< workers that send no more
    Count checked;             ///< workers that have drawn the balance

    std::atomic<uint32_t> verified;
    std::atomic<uint32_t> relayed;
    std::atomic<uint32_t> notices;
    std::atomic<uint32_t> hunts;
    std::atomic<uint32_t> timeouts;
    std::atomic<uint32_t> refused;  ///< sends to somebody who had ended
    std::atomic<uint32_t> noMemory;
    std::atomic<uint32_t> interrupted;  ///< sends amid which their sender was killed
    std::atomic<uint32_t> losses;

    std::atomic<uint32_t> complaintCount;
    char complaints[32][256];

    std::atomic<uint32_t> livesUsed;
    std::atomic<bool> doomed[maxLives];  ///< by process: it is going to be killed

    Life& life(uint32_t number) { return lives_[number % maxLives]; }
    const Life& life(uint32_t number) const { return lives_[number % maxLives]; }

    /// Begins a life of the worker in the process. Returns its number.
    uint32_t beginLife(uint32_t worker, uint32_t process);

    /// The life of the worker that had this spid; 0 when it is not known (yet).
    uint32_t findLife(uint32_t worker, uint32_t spid) const;

    /// Whether the endpoint that the worker had with this spid is known to live.
    bool isLiving(uint32_t worker, uint32_t spid) const;

    /// Notes something that must not be.
    void complain(const std::string& text);
    std::vector<std::string> allComplaints() const;

private:
    Life lives_[maxLives];
};

std::string nameOfWorker(uint32_t worker);

}  // namespace storm

#endif
