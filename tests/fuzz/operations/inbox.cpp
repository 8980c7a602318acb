#include "tests/fuzz/operations/inbox.h"

#include <algorithm>

namespace fuzz {
namespace {

bool allows(const Selection& selection, uint32_t number) {
    return selection[0] == 0 || std::find(selection.begin() + 1, selection.end(), number) != selection.end();
}

}  // namespace

void Inbox::arrive(const Letter& letter, LinxRef timeout) {
    ++now_;
    arrivals_.push_back({letter, now_, now_, timeout});
}

void Inbox::arriveTogether(const std::vector<Letter>& letters) {
    ++now_;
    for (const Letter& letter : letters) arrivals_.push_back({letter, now_, now_, 0});
}

void Inbox::arriveOnceNoticed(const Letter& letter) {
    ++now_;
    arrivals_.push_back({letter, now_, never, 0});
}

void Inbox::notice() {
    ++now_;
    for (Arrival& arrival : arrivals_) arrival.latest = std::min(arrival.latest, now_);
}

bool Inbox::holds(const Selection& selection) const {
    return std::any_of(arrivals_.begin(), arrivals_.end(),
                       [&](const Arrival& arrival) { return allows(selection, arrival.letter.number); });
}

bool Inbox::mayBeNext(const Arrival& arrival, const Selection& selection) const {
    return allows(selection, arrival.letter.number) &&
           std::none_of(arrivals_.begin(), arrivals_.end(), [&](const Arrival& other) {
               return other.latest < arrival.earliest && allows(selection, other.letter.number);
           });
}

bool Inbox::take(const LinxSignal* signal, uint32_t size, LinxSpid sender, const Selection& selection,
                 Letter& letter) {
    // Of two that look the same, the one whose place is known: what may be anywhere is then still to come.
    auto found = arrivals_.end();
    for (auto it = arrivals_.begin(); it != arrivals_.end(); ++it) {
        const bool is = it->letter.size == size && it->letter.sender == sender && isWritten(signal, it->letter);
        if (!is || !mayBeNext(*it, selection)) continue;
        if (found == arrivals_.end() || it->latest < found->latest) found = it;
    }
    if (found == arrivals_.end()) return false;
    letter = found->letter;
    arrivals_.erase(found);
    return true;
}

bool Inbox::takeTimeout(LinxRef timeout) {
    const auto found = std::find_if(arrivals_.begin(), arrivals_.end(),
                                    [&](const Arrival& arrival) { return arrival.timeout == timeout; });
    if (found == arrivals_.end()) return false;
    arrivals_.erase(found);
    return true;
}

uint32_t Inbox::bytes() const {
    uint32_t sum = 0;
    for (const Arrival& arrival : arrivals_) sum += arrival.letter.size;
    return sum;
}

}  // namespace fuzz
