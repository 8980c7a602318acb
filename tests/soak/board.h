#ifndef LINXIPC_TESTS_SOAK_BOARD_H
#define LINXIPC_TESTS_SOAK_BOARD_H

#include "tests/soak/resources.h"
#include "tests/traffic/ledger.h"

namespace soak {

using traffic::Ledger;

// Workers talk by the LINX operations. Those in the first seats live as long as the soak.
constexpr uint32_t workers = 4;
constexpr uint32_t residentWorkers = 2;

// Members talk through the library. Servers live as long as the soak, clients come and go, and each server now and
// then opens a visitor, a second endpoint, beside its own.
constexpr uint32_t servers = 3;
constexpr uint32_t clients = 2;
constexpr uint32_t members = servers + clients;

constexpr uint32_t arenaMib = 64;

constexpr uint32_t residents = servers + residentWorkers;

constexpr bool isServer(uint32_t seat) {
    return seat < servers;
}
constexpr bool isClient(uint32_t seat) {
    return seat >= servers && seat < members;
}
constexpr uint32_t visitorOf(uint32_t server) {
    return members + server;
}
static_assert(visitorOf(servers - 1) < traffic::mostSeats, "there are seats for all");

/// What all processes of the soak share.
struct Board {
    Ledger workers;
    Ledger members;

    Count serversReady;

    /// The member, plus 1, that has no endpoint or is about to have none; 0 when all have. There is one at a time: an
    /// endpoint that has sought in vain takes a late answer for the answer to its next search, and would write to the
    /// wrong one if two were missing.
    Count absent;

    Count round;    ///< of counting that is to come
    Count counted;  ///< residents that have counted what they hold in this round
    std::atomic<bool> over;
    Resources resources[residents];
};

/// Counts what this resident holds, now that nobody is at work, and waits until all go on. False when the soak is
/// over.
bool countAndWait(Board& board, uint32_t resident, uint32_t met, uint32_t held);

}  // namespace soak

#endif
