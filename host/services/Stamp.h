#ifndef LINXIPC_HOST_SERVICES_STAMP_H
#define LINXIPC_HOST_SERVICES_STAMP_H

#include <cstdint>

/// The arithmetic of DiffTime's stamps, apart from the clock. A stamp is the low 32 bits of the millisecond at which
/// the limit ends, so it is told apart from a later one by signed distance: a limit of up to INT_MAX milliseconds
/// works across the wrap, and one that has run out reads 0 for the next 2^31 milliseconds (24 days and 20 hours).
/// A stamp kept longer than that seems to have time left again; 32 bits cannot hold more.
namespace linx {

/// The stamp of a limit that never ends.
constexpr std::uint32_t never = UINT32_MAX;

/// The stamp of a limit that ends `milliseconds` after `now`. Where the end falls on never it comes a millisecond
/// early: later would put INT_MAX out of reach.
constexpr std::uint32_t stampAt(std::uint32_t now, int milliseconds) {
    if (milliseconds < 0) return never;
    const std::uint32_t end = now + static_cast<std::uint32_t>(milliseconds);
    return end == never ? end - 1 : end;
}

/// What `stamp` has left at `now`: 0 once it has run out, -1 if it never does.
constexpr int leftAt(std::uint32_t now, std::uint32_t stamp) {
    if (stamp == never) return -1;
    const auto left = static_cast<std::int32_t>(stamp - now);
    return left > 0 ? left : 0;
}

}  // namespace linx

#endif
