#ifndef LINXIPC_LINK_SESSION_GREETING_H
#define LINXIPC_LINK_SESSION_GREETING_H

#include "link/session/events.h"
#include "link/session/frame.h"
#include "link/session/settings.h"

namespace linx::link {

/// What the two sides have agreed on.
struct Terms {
    uint64_t tagOut = 0;
    uint64_t tagIn = 0;
    uint16_t version = 0;
    uint32_t features = 0;
    uint32_t largestSignal = 0;
    uint32_t windowOut = 0;  ///< bytes that the far side takes unacknowledged
    uint32_t windowIn = 0;
    Time interval = {};  ///< between signs of life
    Hello peer;
};

/*
 * Both sides say HELLO, and READY when they have the other's. HELLO has no tag; READY has that of both nonces, so who
 * receives it knows that the other side has this very HELLO and not one of an earlier connection:
 *
 *      HELLO(nonce a) ------>  <------ HELLO(nonce b)
 *      READY(tag of a, b) -->  <------ READY(tag of b, a)
 *      up when it has come     up when it has come
 *
 * Until then a later HELLO counts instead of an earlier one, which may have been an old one's echo.
 */
class Greeting {
public:
    Greeting(const Settings& settings, uint64_t nonce);

    /// The frame that comes next, while the greeting has one to say.
    std::optional<Bytes> nextFrame(uint64_t& sequence);
    /// A frame without a tag; what it ends the session for, if it does.
    std::optional<End> take(const FrameView& frame);

    const std::optional<Terms>& terms() const { return terms_; }
    bool isSaid() const { return terms_ && readySent_; }

private:
    std::optional<End> agree(const Hello& peer);

    Hello own_;
    std::optional<Terms> terms_;
    bool helloSent_ = false;
    bool readySent_ = false;
};

/// The tag of what the owner of the first nonce sends to that of the second. Never 0.
uint64_t tagOf(uint64_t sender, uint64_t receiver);

}  // namespace linx::link

#endif
