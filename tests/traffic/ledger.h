#ifndef LINXIPC_TESTS_TRAFFIC_LEDGER_H
#define LINXIPC_TESTS_TRAFFIC_LEDGER_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/kit/complaints.h"
#include "tests/kit/shared.h"
#include "tests/traffic/letter.h"

namespace traffic {

constexpr uint32_t mostSeats = 8;
constexpr uint32_t maxLives = 1u << 14;  ///< that anybody can still have to do with

/// What a life has sent to one other: written before and after each send, so that it outlives the sender.
struct Outgoing {
    std::atomic<uint32_t> peer;  ///< spid
    std::atomic<uint32_t> begun[kinds];
    std::atomic<uint32_t> sent[kinds];
};

/// Signals, and their bytes modulo 2^32.
struct Volume {
    std::atomic<uint32_t> signals;
    std::atomic<uint32_t> bytes;

    void add(uint32_t size) {
        ++signals;
        bytes += size;
    }
};

/// One incarnation of the endpoint in a seat. Lives are numbered from 1; life 0 is nobody's.
struct Life {
    std::atomic<uint32_t> seat;
    std::atomic<uint32_t> process;   ///< each has a higher number than those before
    std::atomic<uint32_t> previous;  ///< of the same seat
    std::atomic<uint32_t> spid;      ///< 0 while it opens
    std::atomic<bool> closing;
    Volume sent;      ///< all that it has sent
    Volume received;  ///< all that it has received
    Outgoing to[mostSeats];
};

/// What processes that talk know of each other besides what they send: memory that they share, and that keeps what
/// the killed have written. Each seat is a name, under which one endpoint at a time is open.
struct Ledger : linxtest::Complaints {
    uint32_t seats;                           ///< set before the processes begin
    std::atomic<uint32_t> latest[mostSeats];  ///< life
    std::atomic<uint32_t> beats[mostSeats];   ///< counts each seat's progress
    std::atomic<bool> settled[mostSeats];     ///< all that was sent to the seat has come, nothing is awaited
    std::atomic<bool> retire[mostSeats];      ///< the process is to end once the endpoint in the seat has
    std::atomic<uint32_t> doomed[mostSeats];  ///< the process of the seat that is killed next, or was killed last

    std::atomic<bool> finish;  ///< nobody asks any more
    std::atomic<bool> leave;   ///< nobody sends any more
    Count standing;            ///< seats whose endpoints send no more
    Count checked;             ///< seats that have drawn the balance
    Count dismissed;           ///< 1 when those may end

    std::atomic<uint32_t> verified;
    std::atomic<uint32_t> relayed;
    std::atomic<uint32_t> notices;
    std::atomic<uint32_t> hunts;
    std::atomic<uint32_t> timeouts;
    std::atomic<uint32_t> refused;  ///< sends to somebody who had ended
    std::atomic<uint32_t> noMemory;
    std::atomic<uint32_t> interrupted;  ///< sends amid which their sender was killed
    std::atomic<uint32_t> losses;
    std::atomic<uint32_t> kibibytes;  ///< in signals that were verified
    std::atomic<uint32_t> captured;   ///< signals that somebody who captures them has verified
    std::atomic<uint32_t> captures;   ///< that were begun
    std::atomic<uint32_t> looks;      ///< at all that can be seen of the domain

    std::atomic<uint32_t> livesUsed;

    Life& life(uint32_t number) { return lives_[number % maxLives]; }
    const Life& life(uint32_t number) const { return lives_[number % maxLives]; }

    /// Begins a life in the seat, of the process. Returns its number.
    uint32_t beginLife(uint32_t seat, uint32_t process);

    /// The life in the seat that had this spid; 0 when it is not known (yet).
    uint32_t findLife(uint32_t seat, uint32_t spid) const;

    /// Whether this life is known to go on, or the endpoint in the seat that has this spid.
    bool isLiving(uint32_t number) const;
    bool isLiving(uint32_t seat, uint32_t spid) const { return isLiving(findLife(seat, spid)); }

    bool allSettled() const;

    /// Has the seats talk again, after all have drawn the balance.
    void goOn();

private:
    bool isTaken(uint32_t number) const;

    Life lives_[maxLives];
};

/// Adds up bytes in a process, and hands whole kibibytes to the ledger: there may be more than 32 bits can count.
class ByteTally {
public:
    explicit ByteTally(Ledger& ledger) : ledger_(ledger) {}
    void add(uint32_t bytes) {
        rest_ += bytes;
        ledger_.kibibytes += rest_ / 1024;
        rest_ %= 1024;
    }

private:
    Ledger& ledger_;
    uint32_t rest_ = 0;
};

}  // namespace traffic

#endif
