#include "tests/storm/onlooker.h"

#include <random>

#include "host/arena/domain.h"
#include "host/arena/domain_path.h"
#include "inspect/tap.h"
#include "tests/kit/look_around.h"

namespace storm {
namespace {

using linx::inspect::Place;
using linx::inspect::Sent;
using linx::inspect::Tap;
using traffic::Letter;

constexpr uint32_t snapBytes = sizeof(Letter) + 300;  // most letters, whole
constexpr int captureMilliseconds = 2;

class Onlooker {
public:
    Onlooker(traffic::Ledger& ledger, uint32_t seed) : ledger_(ledger), random_(seed) {}

    void lookOn() {
        while (!ledger_.leave) {
            Place place;
            if (!place.openDirectory(linx::domainPath())) continue;
            capture(place);
            look(place);
        }
    }

private:
    void complain(const std::string& text) { ledger_.complain("the onlooker: " + text); }

    void capture(const Place& place) {
        const std::unique_ptr<Tap> tap = Tap::take(place, snapBytes);
        if (tap == nullptr) return complain("nobody captures, and yet it cannot");
        ++ledger_.captures;
        Sent sent;
        for (uint64_t left = random_() % 3000; left != 0 && tap->next(sent, captureMilliseconds); --left) check(sent);
    }

    void check(const Sent& sent) {
        if (sent.number - traffic::firstNumber >= traffic::kinds) {
            return complain("captures the number " + std::to_string(sent.number));
        }
        if (sizeof(LinxSignal) + sent.data.size() != sent.size) return;  // cut short
        const auto& letter = *reinterpret_cast<const Letter*>(sent.data.data());
        const auto kind = static_cast<traffic::Kind>(sent.number - traffic::firstNumber);
        if (sent.data.size() < sizeof letter || !isWhole(letter, kind, sent.size)) {
            return complain("captures a signal that nobody has sent");
        }
        if (letter.to != numberOf(sent.to)) complain("captures a signal as sent to another");
        if (ledger_.life(letter.from).spid != numberOf(sent.from)) complain("captures a signal as sent by another");
        ++ledger_.captured;
    }

    void look(const Place& place) {
        const std::unique_ptr<linxtest::Sight> sight = linxtest::lookAround(place);
        if (sight == nullptr) return complain("cannot look around");
        for (const linx::inspect::Endpoint& endpoint : sight->endpoints) {
            if (isKnown(endpoint.name)) continue;
            complain("sees an endpoint '" + endpoint.name + "'");
        }
        for (const linx::inspect::Recorded& event : sight->history) checkEvent(event);
        ++ledger_.looks;
    }

    static bool isKnown(const std::string& name) {
        return name == "first" || name.compare(0, 6, "worker") == 0 || name.compare(0, 6, "errand") == 0;
    }

    void checkEvent(const linx::inspect::Recorded& event) {
        const bool isSent = event.kind == linx::EventKind::sent;
        if (isSent && event.number - traffic::firstNumber >= traffic::kinds) {
            complain("sees the number " + std::to_string(event.number) + " recorded as sent");
        }
        if (event.kind > linx::EventKind::closed) complain("sees an event of no kind");
    }

    traffic::Ledger& ledger_;
    std::mt19937 random_;
};

/// What an endpoint's slot tells of the signals that went through it, compared with a life's books. A killed one may
/// have told of one more than it came to write down.
std::string compare(const char* what, uint64_t signals, uint64_t bytes, const traffic::Volume& books, uint32_t more) {
    const uint32_t signalsOver = static_cast<uint32_t>(signals) - books.signals;
    const uint32_t bytesOver = static_cast<uint32_t>(bytes) - books.bytes;
    if (signalsOver <= more && (more != 0 || bytesOver == 0)) return {};
    return std::string(what) + " " + std::to_string(signals) + " signals of " + std::to_string(bytes) +
           " bytes in all, and by the books " + std::to_string(books.signals) + " of " + std::to_string(books.bytes);
}

std::string compareLife(const linx::Arena& arena, const traffic::Ledger& ledger, uint32_t number, uint32_t more) {
    const traffic::Life& life = ledger.life(number);
    const linx::Spid spid{life.spid.load()};
    const linx::Slot& slot = arena.slot(indexOf(spid));
    if (spid == linx::Spid::none || spidOf(slot.life.loadAcquire()) != spid) return {};
    std::string fault = compare("sent", slot.traffic.signalsOut, slot.traffic.bytesOut, life.sent, more);
    if (fault.empty()) {
        fault = compare("received", slot.traffic.signalsIn, slot.traffic.bytesIn, life.received, more);
    }
    if (spidOf(slot.life.loadAcquire()) != spid) return {};  // it was another's meanwhile
    return fault.empty() ? fault : "life " + std::to_string(number) + " tells that it " + fault;
}

}  // namespace

void lookOn(traffic::Ledger& ledger, uint32_t seed) {
    Onlooker(ledger, seed).lookOn();
}

std::string compareBooks(const traffic::Ledger& ledger) {
    const std::shared_ptr<linx::Domain> domain = linx::Domain::join();
    std::string fault;
    const bool agree = comesTrue(
        [&] {  // whoever has just received writes it down in a moment
            fault.clear();
            for (uint32_t seat = 0; seat < ledger.seats && fault.empty(); ++seat) {
                fault = compareLife(domain->arena(), ledger, ledger.latest[seat], 0);
            }
            return fault.empty();
        },
        5000);
    return agree ? std::string() : fault;
}

std::string compareBooksOfKilled(const traffic::Ledger& ledger, uint32_t life) {
    return compareLife(linx::Domain::join()->arena(), ledger, life, 1);
}

}  // namespace storm
