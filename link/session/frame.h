#ifndef LINXIPC_LINK_SESSION_FRAME_H
#define LINXIPC_LINK_SESSION_FRAME_H

#include <optional>

#include "link/session/bytes.h"

namespace linx::link {

/*
 * A frame is what an engine carries from one link to the other. All numbers have their highest byte first.
 *
 *     0                8                16       20    22     23      24
 *    +----------------+----------------+--------+-----+------+-------+------------------
 *    |      tag       |    sequence    | channel| size| type | flags | size bytes
 *    +----------------+----------------+--------+-----+------+-------+------------------
 *
 * The tag names the session and the direction; only greetings have none (0), as they agree on it. Frames of a session
 * count from 1. The channel is an endpoint's number, for the types that speak of one, and else 0. The size repeats
 * what the engine knows: a frame whose size is another is refused.
 */
constexpr size_t headerBytes = 24;
constexpr size_t frameBytes = 16 * 1024;
constexpr size_t bodyBytes = frameBytes - headerBytes;

/// Those from `seek` to `fragment` have to be acknowledged and fill the window; the others are never waited for.
enum class Type : uint8_t {
    hello = 1,
    ready = 2,
    bye = 3,
    ping = 4,
    acknowledgement = 5,
    credit = 6,
    seek = 16,
    refusal = 17,
    announcement = 18,
    end = 19,
    signals = 20,
    fragment = 21,
};

constexpr bool fillsWindow(Type type) {
    return type >= Type::seek;
}

constexpr uint8_t flagFirst = 1;   ///< of a fragment: a signal begins, and its head comes before its bytes
constexpr uint8_t flagEchoes = 1;  ///< of a ping: it repeats the stamp of one that has arrived

struct Header {
    uint64_t tag = 0;
    uint64_t sequence = 0;
    uint32_t channel = 0;
    uint16_t size = 0;
    Type type = Type::hello;
    uint8_t flags = 0;
};

/// A frame as it has arrived. It lives no longer than the bytes that it was read from.
struct FrameView {
    Header header;
    const uint8_t* bytes = nullptr;

    Reader body() const { return Reader(bytes, header.size); }
};

/// Nothing unless `data` is one whole frame of a type that is known.
std::optional<FrameView> readFrame(const uint8_t* data, size_t size);

/// Room for a header; the body is appended, and then the frame is closed.
Bytes openFrame();
/// Puts the header in front of what was appended; its size is found out.
void closeFrame(Bytes& frame, const Header& header);

}  // namespace linx::link

#endif
