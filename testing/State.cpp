#include "testing/State.h"

namespace linx::testing {

State& state() {
    static State& state = *new State;  // not destroyed, as the platform
    return state;
}

void State::deliver(Signal& signal, LinxSpid sender) {
    signal.sender = sender;
    arrivals.add(signal);
    showReadiness();
}

void State::hunt(const Peers::Hunt& hunt) {
    if (const std::optional<LinxSpid> found = peers.find(hunt.name)) {
        answer(hunt, *found);
    } else {
        peers.await(hunt);
    }
}

void State::answer(const Peers::Hunt& hunt, LinxSpid found) {
    Signal& signal = hunt.signal != nullptr ? *hunt.signal : signals.make(found, LINX_OS_HUNT_SIG, "");
    signal.receiver = hunt.hunter;
    deliver(signal, found);
}

}  // namespace linx::testing
