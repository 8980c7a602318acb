#ifndef LINXIPC_LINK_SESSION_CHARGE_H
#define LINXIPC_LINK_SESSION_CHARGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace linx::link {

/// What a signal takes of its channel's credit, on both sides: its bytes and something for the block that holds it,
/// so that empty ones are bounded too. One larger than the whole credit takes all of it, and so travels alone.
constexpr uint64_t chargeOf(size_t payload, uint32_t credit) {
    constexpr uint64_t block = 64;
    return std::min<uint64_t>(payload + block, credit);
}

}  // namespace linx::link

#endif
