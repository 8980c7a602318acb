#ifndef LINXIPC_TESTING_STATE_H
#define LINXIPC_TESTING_STATE_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "testing/Arrivals.h"
#include "testing/AtWork.h"
#include "testing/Endpoints.h"
#include "testing/Failures.h"
#include "testing/Peers.h"
#include "testing/RecordingPlatform.h"
#include "testing/Signals.h"

namespace linx::testing {

/// What the operations work on, besides what `RecordingPlatform` shows.
struct State {
    Signals signals;
    Arrivals arrivals;
    Peers peers;
    Failures failures;
    Endpoints endpoints;
    std::vector<std::string> calls;
    std::map<unsigned, std::optional<std::chrono::milliseconds>> stamps;  // when they run out; never without a time
    unsigned lastStamp = 1000;
    LinxRef lastReference = 500;
    unsigned namesInHand = 0;

    /// The signal arrives from `sender`.
    void deliver(Signal& signal, LinxSpid sender);

    /// Its answer arrives, or waits for a peer of that name to be added.
    void hunt(const Peers::Hunt& hunt);

    /// The answer to the hunt arrives from `found`.
    void answer(const Peers::Hunt& hunt, LinxSpid found);

    /// To be called when something has arrived or been taken.
    void showReadiness() { endpoints.showReadiness(arrivals); }
};

State& state();

/// The fifteen operations, and the log, `DiffTime` and the watchdog, are called by a shared library perhaps, and by
/// nobody else; an archive, however, gives a program only what it asks for. So whoever uses the platform asks.
void bringOperations();
void bringServices();

}  // namespace linx::testing

#endif
