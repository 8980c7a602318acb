#ifndef LINXIPC_BENCH_PEERS_HEAD_H
#define LINXIPC_BENCH_PEERS_HEAD_H

#include <cstdint>
#include <cstring>

#include "bench/peers/end.h"

namespace bench {

/// What every message begins with, so that none can be lost, doubled or overtaken without notice.
struct Head {
    std::uint64_t number;  ///< counted by its sender from 1
    std::uint64_t sender;
};

constexpr std::size_t smallestPayload = sizeof(Head);

inline Head headOf(View message) {
    Head head;
    std::memcpy(&head, message.bytes, sizeof head);
    return head;
}

inline void write(const Head& head, char* message) {
    std::memcpy(message, &head, sizeof head);
}

}  // namespace bench

#endif
