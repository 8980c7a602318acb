#ifndef LINXIPC_BENCH_PEERS_WINDOW_H
#define LINXIPC_BENCH_PEERS_WINDOW_H

#include <algorithm>
#include <cstddef>

namespace bench {

/// How many messages of a stream may be under way where the peer leaves that to its user: as many as fit the caches.
/// A power of two.
constexpr std::size_t windowFor(std::size_t payload) {
    std::size_t window = 1024;
    while (window > 16 && window * payload > 512 * 1024) window /= 2;
    return window;
}

}  // namespace bench

#endif
