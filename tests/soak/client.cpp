#include "tests/soak/client.h"

namespace soak {

void Client::live() {
    for (uint32_t server = 0; server < servers; ++server) greet(server);
    board_.absent = 0;
    while (!ledger_.leave) {
        if (!ledger_.finish) {
            if (ledger_.retire[seat_] || feelsLikeClosing()) return;
            turn();
        }
        attend();
    }
    drawBalance();
}

bool Client::feelsLikeClosing() {
    uint32_t nobody = 0;
    return draw(200) == 0 && board_.absent.compare_exchange_strong(nobody, seat_ + 1);
}

void Client::turn() {
    const uint32_t server = drawOtherServer();
    switch (draw(4)) {
        case 0:
            return ask(server);
        case 1:
            return askMeanwhile(server);
        case 2:
            return useTimers();
        default:
            return burst(server);
    }
}

}  // namespace soak
