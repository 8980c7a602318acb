#ifndef LINXIPC_LINK_SESSION_SETTINGS_H
#define LINXIPC_LINK_SESSION_SETTINGS_H

#include "link/session/messages.h"

namespace linx::link {

/// What a node says of itself in each session, and what it stands by.
struct Settings {
    NodeId node = {};
    uint16_t lowestVersion = 1;
    uint16_t highestVersion = 1;
    uint32_t features = 0;
    ByteOrder byteOrder = ByteOrder::littleEndian;
    uint8_t wordBytes = 8;
    uint32_t largestSignal = mostSignal;
    uint32_t window = 512 * 1024;
    uint32_t tolerance = 1500;  ///< milliseconds
};

constexpr uint32_t usualCredit = 256 * 1024;
/// Endpoints of one side that the other knows of at a time, and names that it seeks in a session.
constexpr size_t mostEndpoints = 1024;
constexpr size_t mostSeeks = 1024;
/// Signals in fragments that may be under way at a time, each on a channel of its own.
constexpr unsigned mostPartials = 4;
/// What a channel takes from its senders before it says "later". A larger signal is taken when nothing else waits.
constexpr size_t mostQueued = 32 * 1024;

}  // namespace linx::link

#endif
