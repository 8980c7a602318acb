#include "tests/traffic/ledger.h"

#include <algorithm>

namespace traffic {

uint32_t Ledger::beginLife(uint32_t seat, uint32_t process) {
    uint32_t number;
    do {
        number = ++livesUsed;
    } while (isTaken(number));
    Life& own = life(number);
    own.spid = 0;
    own.closing = false;
    own.sent.signals = own.sent.bytes = own.received.signals = own.received.bytes = 0;
    own.seat = seat;
    own.process = process;
    own.previous = latest[seat].load();
    for (Outgoing& outgoing : own.to) {
        outgoing.peer = 0;
        for (uint32_t kind = 0; kind < kinds; ++kind) outgoing.begun[kind] = outgoing.sent[kind] = 0;
    }
    latest[seat] = number;
    return number;
}

/// Whether the life has the entry of one that goes on since long ago.
bool Ledger::isTaken(uint32_t number) const {
    return std::any_of(latest, latest + mostSeats,
                       [&](const auto& life) { return life != 0 && life % maxLives == number % maxLives; });
}

uint32_t Ledger::findLife(uint32_t seat, uint32_t spid) const {
    uint32_t number = latest[seat];
    for (int left = 100; number != 0 && left != 0; --left) {
        if (life(number).spid == spid) return number;
        number = life(number).previous;
    }
    return 0;
}

bool Ledger::isLiving(uint32_t number) const {
    const Life& that = life(number);
    return number != 0 && !that.closing && that.process > doomed[that.seat];
}

bool Ledger::allSettled() const {
    return std::all_of(settled, settled + seats, [](const auto& is) { return is.load(); });
}

void Ledger::goOn() {
    finish = leave = false;
    standing = checked = dismissed = 0;
    for (uint32_t seat = 0; seat < seats; ++seat) settled[seat] = false;
}

}  // namespace traffic
