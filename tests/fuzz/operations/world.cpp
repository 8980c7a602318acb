#include "tests/fuzz/operations/world.h"

#include <algorithm>

#include "host/arena/spid.h"
#include "tests/fuzz/claim.h"

namespace fuzz {
namespace {

template <class Entries, class Condition>
void eraseIf(Entries& entries, Condition condition) {
    entries.erase(std::remove_if(entries.begin(), entries.end(), condition), entries.end());
}

bool takeOut(std::vector<Timeout>& timeouts, LinxRef reference) {
    const size_t before = timeouts.size();
    eraseIf(timeouts, [&](const Timeout& timeout) { return timeout.reference == reference; });
    return timeouts.size() != before;
}

}  // namespace

uint32_t Seat::bytes() const {
    uint32_t sum = inbox.bytes();
    for (const auto& [signal, letter] : held) sum += letter.size;
    for (const Timeout& timeout : due) sum += timeout.letter.size;
    for (const Timeout& timeout : distant) sum += timeout.letter.size;
    return sum;
}

Seat* World::findOpen(const std::string& name) {
    const auto found = std::find_if(seats.begin(), seats.end(),
                                    [&](const Seat& seat) { return seat.isOpen() && seat.name == name; });
    return found == seats.end() ? nullptr : &*found;
}

Seat* World::findOpen(LinxSpid spid) {
    const auto found = std::find_if(seats.begin(), seats.end(),
                                    [&](const Seat& seat) { return seat.isOpen() && seat.spid == spid; });
    return found == seats.end() ? nullptr : &*found;
}

const std::string* World::nameOf(LinxSpid spid) const {
    const auto found = known_.find(spid);
    return found == known_.end() || latest_.at(linx::indexOf(linx::Spid{spid})) != spid ? nullptr : &found->second;
}

void World::open(Seat& seat, LINX* linx, LinxSpid spid, const std::string& name) {
    claim(known_.insert({spid, name}).second, "no spid is given out twice");
    latest_[linx::indexOf(linx::Spid{spid})] = spid;
    seat.linx = linx;
    seat.spid = spid;
    seat.name = name;
    for (Seat& hunter : seats) {
        std::vector<Letter> answers;
        for (const Hunt& hunt : hunts_) {
            if (hunt.hunter != &hunter || hunt.name != name) continue;
            answers.push_back(hunt.letter);
            answers.back().sender = spid;
        }
        hunter.inbox.arriveTogether(answers);
    }
    eraseIf(hunts_, [&](const Hunt& hunt) { return hunt.name == name; });
}

void World::close(Seat& seat) {
    for (const Attach& attach : attaches_) {
        if (attach.whom == seat.spid && attach.watcher != &seat)
            attach.watcher->inbox.arriveOnceNoticed(attach.notice);
    }
    eraseIf(attaches_, [&](const Attach& attach) { return attach.whom == seat.spid || attach.watcher == &seat; });
    eraseIf(hunts_, [&](const Hunt& hunt) { return hunt.hunter == &seat; });
    seat = Seat();
}

void World::attach(Seat& watcher, LinxSpid whom, const Letter& notice) {
    Letter letter = notice;
    letter.sender = whom;
    if (findOpen(whom) == nullptr) return watcher.inbox.arrive(letter);
    attaches_.push_back({&watcher, whom, letter});
}

void World::fireTimeouts(Seat& seat) {
    for (const Timeout& timeout : seat.due) seat.inbox.arrive(timeout.letter, timeout.reference);
    seat.due.clear();
}

bool World::cancel(Seat& seat, LinxRef reference) {
    return reference != 0 &&
           (takeOut(seat.due, reference) || takeOut(seat.distant, reference) || seat.inbox.takeTimeout(reference));
}

uint32_t World::bytes() const {
    uint32_t sum = 0;
    for (const Seat& seat : seats) sum += seat.bytes();
    for (const Hunt& hunt : hunts_) sum += hunt.letter.size;
    for (const Attach& attach : attaches_) sum += attach.notice.size;
    return sum;
}

}  // namespace fuzz
