#include "tests/soak/server.h"

#include "tests/traffic/pulse.h"

namespace soak {

void Server::live() {
    // They come one after the other, so that each finds those before.
    for (uint32_t other = 0; other < seat_; ++other) greet(other);
    ++board_.serversReady;
    do {
        talk();
        drawBalance();
        awaitEnds();
    } while (countAndWait(board_, seat_, met_, heldSignals()));
}

void Server::talk() {
    while (!ledger_.leave) {
        if (!ledger_.finish && board_.serversReady == servers) turn();
        attend();
    }
}

void Server::turn() {
    const uint32_t other = drawOtherServer();
    switch (draw(6)) {
        case 0:
            // Who waits for an answer waits for one above: never two for each other.
            if (other > seat_) ask(other);
            break;
        case 1:
            askMeanwhile(other);
            break;
        case 2:
            useTimers();
            break;
        case 3:
            for (uint32_t client = servers; client < members; ++client) {
                if (known_[client] != 0) notify(client, traffic::item);
            }
            break;
        default:
            burst(other);
    }
    if (draw(60) == 0) Member(board_, visitorOf(seat_), process_, draw(~0u)).visit();
}

/// Until it has been told the end of all that have ended.
void Server::awaitEnds() {
    const traffic::Clock::time_point limit = traffic::Clock::now() + std::chrono::milliseconds(patience);
    while (peers_.size() != servers - 1) {
        if (traffic::Clock::now() > limit) return complain("is not told all ends");
        take(20);
    }
    while (take(0)) {
    }
}

}  // namespace soak
