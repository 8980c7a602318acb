#ifndef LINXIPC_TOOLS_CAPTURED_H
#define LINXIPC_TOOLS_CAPTURED_H

#include <optional>
#include <string>

#include "host/arena/spid.h"
#include "tools/pcapng.h"

namespace tools {

/// A signal as it was sent, with what its two endpoints are called.
struct Captured {
    uint64_t nanoseconds = 0;  ///< since 1970
    linx::Spid from = linx::Spid::none;
    linx::Spid to = linx::Spid::none;
    std::string fromName;
    std::string toName;
    uint32_t number = 0;
    uint32_t size = 0;           ///< with the number
    bool isLittleEndian = true;  ///< the machine that `data` was in the memory of
    Bytes data;                  ///< the payload, or its beginning

    size_t payloadSize() const { return size - sizeof number; }
    bool isCut() const { return data.size() < payloadSize(); }
};

/*
 * A signal as a packet. What stands before the payload is big-endian whatever the file is and wherever it was
 * captured, so that those who look at packets alone can read it:
 *
 *     0         1         2                   4
 *   +---------+---------+-------------------+---------------------------------------+
 *   | version | flags   | bytes before the  | number                                |
 *   |   = 1   |         | payload           |                                       |
 *   +---------+---------+-------------------+---------------------------------------+
 *   | size, with the number                 | spid of the sender                    |  8
 *   +---------------------------------------+---------+---------+-------------------+
 *   | spid of the receiver                  | bytes of the      | 0                 |  16
 *   |                                       | sender's|receiver's name              |
 *   +---------------------------------------+---------+---------+-------------------+
 *   | the sender's name, the receiver's name, then the payload as the machine had it   24
 *   +---
 *
 * Flag 1: the payload is of a little-endian machine. Whoever reads packets of this version goes by the number of
 * bytes before the payload: more may come to stand there.
 */
Packet toPacket(const Captured& signal);

/// None when that is no such packet.
std::optional<Captured> fromPacket(const Packet& packet);

/// As long as a packet can be whose payload is cut to `snaplen` bytes.
uint32_t packetBytes(uint32_t snaplen);

}  // namespace tools

#endif
