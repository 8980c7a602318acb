#ifndef LINXIPC_LINK_PROXIES_NUMBERS_H
#define LINXIPC_LINK_PROXIES_NUMBERS_H

#include "link/session/events.h"

namespace linx::link {

// Signals that the endpoints of a gateway send to themselves and to each other.
constexpr uint32_t foundNumber = 0x6C6E6B01;  ///< answers a hunt; the name
constexpr uint32_t endedNumber = 0x6C6E6B02;  ///< the end of somebody here
constexpr uint32_t markNumber =
    0x6C6E6B03;  ///< in a proxy's mailbox: somebody who has ended had sent no more; its spid

// What is watched.
constexpr uint64_t linkNumber = 0;
constexpr uint64_t sessionNumber = 1;
constexpr uint64_t numberOfProxy(FarId id) {
    return uint64_t{numberOf(id)} + 2;
}
constexpr FarId proxyOf(uint64_t number) {
    return FarId(static_cast<uint32_t>(number - 2));
}

}  // namespace linx::link

#endif
