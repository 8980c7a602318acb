#include "tests/scribble/onlooker.h"

#include "host/arena/domain_path.h"
#include "inspect/tap.h"
#include "tests/kit/look_around.h"

namespace scribble {
namespace {

constexpr uint32_t snapBytes = 256;
constexpr uint32_t mostCaptured = 1000;  ///< between two looks
constexpr int captureMilliseconds = 2;

void capture(Ledger& ledger, const linx::inspect::Place& place) {
    const auto tap = linx::inspect::Tap::take(place, snapBytes);
    if (tap == nullptr) return;
    linx::inspect::Sent sent;
    for (uint32_t left = mostCaptured; left != 0 && tap->next(sent, captureMilliseconds); --left) ++ledger.captured;
}

}  // namespace

void lookOn(Ledger& ledger) {
    while (!ledger.leave) {
        linx::inspect::Place place;
        if (place.openDirectory(linx::domainPath())) {
            if (linxtest::lookAround(place) != nullptr) ++ledger.looks;
            capture(ledger, place);
        }
        ++ledger.beats[onlooker];
    }
}

}  // namespace scribble
