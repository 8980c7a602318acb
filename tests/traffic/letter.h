#ifndef LINXIPC_TESTS_TRAFFIC_LETTER_H
#define LINXIPC_TESTS_TRAFFIC_LETTER_H

#include <cstdint>

#include "platform/linx.h"

namespace traffic {

/// What the endpoints of a test send each other, and the offset of its signal number. Each kind is counted by itself,
/// since a receive may select some kinds before others. All but the last carry a letter.
enum Kind : uint32_t { item, request, reply, relay, bare, kinds };

constexpr uint32_t firstNumber = 1000;

/// The payload of a signal: this, and then `bytes` bytes that are made from `seed`.
struct Letter {
    uint32_t from;      ///< life of who sent it last
    uint32_t to;        ///< whom it was sent to
    uint32_t sequence;  ///< counts what `from` has sent to `to` of this kind, from 1
    uint32_t question;  ///< of a request and its reply
    uint32_t hops;      ///< how often a relay is still to be passed on
    uint32_t seed;
    uint32_t bytes;
    uint32_t headSum;
};

/// The size of the signal that carries a letter with so many bytes behind it.
constexpr uint32_t signalBytes(uint32_t bytes) {
    return static_cast<uint32_t>(sizeof(LinxSignal) + sizeof(Letter)) + bytes;
}

inline Letter* letterIn(LinxSignal* signal) {
    return reinterpret_cast<Letter*>(signal + 1);
}

/// Writes the bytes behind the letter.
void fill(Letter& letter);

/// Makes the letter's head vouch for itself and for the kind it is sent as.
void seal(Letter& letter, Kind kind);

/// Whether nothing in the letter has changed since it was filled and sealed.
bool isWhole(const Letter& letter, Kind kind, uint32_t signalSize);

}  // namespace traffic

#endif
