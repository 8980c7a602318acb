#ifndef LINXIPC_LINK_STATUS_STATUS_H
#define LINXIPC_LINK_STATUS_STATUS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace linx::link {

// What a link tells whoever asks: a signal of the first number to its own endpoint, without payload, is answered by
// one of the second, with a text.
constexpr uint32_t askStatusNumber = 0x6C6E6B04;
constexpr uint32_t statusNumber = 0x6C6E6B05;

/// A link at a moment.
struct Status {
    /// Somebody over there for whom signals wait here.
    struct Destination {
        std::string name;
        uint64_t signals = 0;
        uint64_t bytes = 0;
        uint64_t credit = 0;  ///< bytes that it may still be sent
    };

    std::string state = "down";  ///< up, connecting or down
    uint64_t seconds = 0;        ///< for how long
    std::string reason;          ///< why it is not up, as far as that is known
    std::string peer;            ///< its public key
    std::string byteOrder;  ///< of the peer, big or little; this and what follows while it is up, else empty or 0
    uint64_t wordBits = 0;
    uint64_t roundTrip = 0;  ///< microseconds; 0 before any was measured
    uint64_t window = 0;     ///< bytes that may be on their way
    uint64_t inFlight = 0;   ///< of these, in use
    uint64_t waiting = 0;    ///< bytes that wait for credit or the window
    std::vector<Destination> destinations;
    std::vector<std::string> denied;          ///< names that the peer does not let us hunt for
    std::map<std::string, uint64_t> refused;  ///< here, by reason, since the link's process began
    uint64_t lost = 0;                        ///< signals that ends of sessions took with them, likewise
};

/// As it travels: lines of a word and its value.
std::string textOf(const Status& status);

/// Nothing where that is no text of a status.
std::optional<Status> statusFrom(const std::string& text);

}  // namespace linx::link

#endif
