#ifndef LINXIPC_LINK_ENGINE_ENGINE_H
#define LINXIPC_LINK_ENGINE_ENGINE_H

#include <optional>
#include <string>
#include <variant>

#include "link/session/peer.h"

namespace linx::link {

/// A peer, by its place among those that the engine was given.
enum class PeerNumber : uint32_t {};

constexpr size_t indexOf(PeerNumber number) {
    return static_cast<size_t>(number);
}

/// What an engine tells. Who is at the other end has proved that it is that peer.
struct Connected {
    PeerNumber peer = {};
    Connection connection = {};
    bool dialledHere = false;
};
struct DialFailed {
    PeerNumber peer = {};
    std::string reason;
};
struct FrameArrived {
    Connection connection = {};
    Bytes frame;
};
/// Nothing of this connection comes after it.
struct Disconnected {
    Connection connection = {};
    std::string reason;
};
using News = std::variant<Connected, DialFailed, FrameArrived, Disconnected>;

enum class Carried { taken, later, gone };

/*
 * Carries frames between this node and its peers: whole, in order, each at most once, and at most some time after it
 * has lost the other end. It promises no more: what it had taken when a connection ends is lost without a word.
 *
 * It never blocks. Its descriptor becomes readable when there may be news. Anything that is asked of the engine may
 * use that up, so it is waited for only when next() has just had nothing to tell.
 */
class Engine {
public:
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine() = default;

    /// Answered once, by Connected or DialFailed. Only for peers that the engine knows how to reach.
    virtual void dial(PeerNumber peer, Time now) = 0;
    /// `later`: too much waits already; the same frame is to be offered again. `gone`: Disconnected will be told.
    virtual Carried send(Connection connection, const Bytes& frame) = 0;
    /// Nothing more is told of this connection. What was taken of it still leaves, also when the engine ends then.
    virtual void close(Connection connection) = 0;

    virtual std::optional<News> next(Time now) = 0;
    virtual int descriptor() const = 0;
    /// When it wants to be asked for news even if the descriptor stays quiet.
    virtual Time deadline() const = 0;
};

}  // namespace linx::link

#endif
