#include "tests/soak/soak.h"

#include <time.h>

#include <algorithm>

#include "tests/soak/client.h"
#include "tests/soak/server.h"
#include "tests/traffic/worker.h"

namespace soak {
namespace {

using std::chrono::milliseconds;

void pause() {
    const timespec moment = {0, 2000000};
    nanosleep(&moment, nullptr);
}

/// In the first round they send more large signals than ever after: what they lease then is to do for all that comes.
traffic::Manner mannerIn(uint32_t round) {
    traffic::Manner manner;
    manner.nap = 3000;
    manner.largeIn = round == 0 ? 4 : 20;
    manner.large = 65536;
    manner.largestIn = round == 0 ? 50 : 1000;
    return manner;
}

}  // namespace

bool countAndWait(Board& board, uint32_t resident, uint32_t met, uint32_t held) {
    const uint32_t round = board.round;
    board.resources[resident] = countResources();
    board.resources[resident].met = met;
    board.resources[resident].held = held;
    ++board.counted;
    while (board.round == round) pause();
    return !board.over;
}

Soak::Soak(Board& board, const std::string& directory, uint32_t seed)
    : board_(board), directory_(directory), random_(seed) {
    board_.workers.seats = workers;
    board_.members.seats = members;
    for (uint32_t i = 0; i < places_.size(); ++i) {
        const bool isMember = i < members;
        places_[i].ledger = isMember ? &board_.members : &board_.workers;
        places_[i].seat = isMember ? i : i - members;
        places_[i].isResident = places_[i].seat < (isMember ? servers : residentWorkers);
    }
}

void Soak::run(Clock::duration time, Clock::duration interval) {
    start();
    const Clock::time_point last = began_ + time - interval / 2;
    Clock::time_point next = began_ + interval;
    while (isFine()) {
        watch(milliseconds(50 + draw(900)));
        if (Clock::now() < next) {
            strike();
            continue;
        }
        haveCounted();
        if (!isFine()) return;
        if (Clock::now() > last) return end();
        next += interval;
        resume();
    }
}

void Soak::start() {
    for (Place& place : places_) {
        if (!place.isResident) continue;
        spawn(place);
        const uint32_t ready = place.seat + 1;
        if (isMember(place)) await("the servers find each other", [&] { return board_.serversReady >= ready; });
    }
    spawnOthers();
}

void Soak::spawn(Place& place) {
    place.process = ++processes_;
    place.pulse.restart(Clock::now());
    const uint32_t seed = draw(~0u);
    place.child = std::make_unique<Child>([this, &place, seed](Line& parent) { work(place, parent, seed); });
}

/// What the process in the place does.
void Soak::work(const Place& place, Line& parent, uint32_t seed) {
    if (!isMember(place)) {
        const uint32_t resident = servers + place.seat;
        do {
            traffic::work(*place.ledger, mannerIn(board_.round), parent, place.seat, place.process, seed);
        } while (place.isResident && countAndWait(board_, resident, 0, 0));
    } else if (place.isResident) {
        Server(board_, place.seat, place.process, seed).live();
    } else {
        do {
            Client(board_, place.seat, place.process, seed++).live();
        } while (!place.ledger->leave && !place.ledger->retire[place.seat]);
    }
}

/// Ends a process that may end, in either way, and replaces it.
void Soak::strike() {
    Place& place =
        places_[draw(2) == 0 ? servers + draw(clients) : members + residentWorkers + draw(workers - residentWorkers)];
    if (!claimAbsence(place)) return;
    if (draw(2) == 0) {
        kill(place);
    } else {
        retire(place);
    }
    if (isFine()) spawn(place);
}

void Soak::kill(Place& place) {
    place.ledger->doomed[place.seat] = place.process;
    place.child->kill9();
    ++kills_;
}

void Soak::retire(Place& place) {
    place.ledger->retire[place.seat] = true;
    expectEnd(place);
    place.ledger->retire[place.seat] = false;
    ++ends_;
}

bool Soak::claimAbsence(const Place& place) {
    if (!isMember(place)) return true;
    return await("a client is known to all", [&] {
        uint32_t nobody = 0;
        return board_.absent.compare_exchange_strong(nobody, place.seat + 1);
    });
}

/// Has everybody stand still, all that come and go end, and everything counted.
void Soak::haveCounted() {
    settle();
    if (!isFine()) return;
    for (Place& place : places_) {
        if (!place.isResident) expectEnd(place);
    }
    if (!await("the residents count", [this] { return board_.counted == residents; })) return;
    Sample sample = lookAtDomain(directory_);
    sample.minutes = std::chrono::duration<double>(Clock::now() - began_).count() / 60;
    sample.kills = kills_;
    sample.vainSearches = board_.members.refused;
    std::copy_n(board_.resources, residents, sample.resources.begin());
    if (!sample.disorder.empty()) complain("the arena: " + sample.disorder);
    print(sample);
    samples_.push_back(sample);
}

void Soak::settle() {
    await("a client is known to all", [this] {
        uint32_t nobody = 0;
        return board_.absent.compare_exchange_strong(nobody, ~0u);
    });
    board_.workers.finish = board_.members.finish = true;
    await("all come to rest", [this] { return board_.workers.allSettled() && board_.members.allSettled(); });
    board_.workers.leave = board_.members.leave = true;
    board_.workers.dismissed = 1;
    for (const Place& place : places_) {
        if (!isMember(place)) place.child->tell();
    }
}

/// Has the residents go on, and others come.
void Soak::resume() {
    board_.counted = 0;
    board_.absent = 0;
    board_.workers.goOn();
    board_.members.goOn();
    for (Place& place : places_) place.pulse.restart(Clock::now());
    ++board_.round;
    spawnOthers();
}

void Soak::spawnOthers() {
    for (Place& place : places_) {
        if (!place.isResident && claimAbsence(place)) spawn(place);
    }
}

/// Has the residents end, too.
void Soak::end() {
    board_.over = true;
    ++board_.round;
    for (Place& place : places_) {
        if (place.isResident) expectEnd(place);
    }
}

bool Soak::isFine() const {
    return board_.workers.complaintCount == 0 && board_.members.complaintCount == 0;
}

std::vector<std::string> Soak::complaints() const {
    std::vector<std::string> all = board_.members.allComplaints();
    const std::vector<std::string> others = board_.workers.allComplaints();
    all.insert(all.end(), others.begin(), others.end());
    return all;
}

/// Waits for the condition. False, and somebody has complained, when it is not going to hold.
bool Soak::await(const std::string& what, const std::function<bool()>& condition) {
    const Clock::time_point limit = Clock::now() + milliseconds(patience);
    while (!condition()) {
        if (!isFine()) return false;
        if (Clock::now() > limit) {
            complain("it takes too long until " + what);
            return false;
        }
        watch(milliseconds(1));
    }
    return true;
}

void Soak::watch(Clock::duration time) {
    const Clock::time_point end = Clock::now() + time;
    for (Clock::time_point now = Clock::now(); now < end && isFine(); now = Clock::now()) {
        const bool stand = board_.workers.leave;
        for (Place& place : places_) {
            if (place.child == nullptr || stand) continue;
            longestStall_ = std::max(longestStall_, place.pulse.look(place.ledger->beats[place.seat], now));
            if (!place.pulse.hasStopped()) continue;
            complain((isMember(place) ? nameOfMember(place.seat) : "worker" + std::to_string(place.seat)) +
                     " makes no progress");
        }
        pause();
    }
}

void Soak::expectEnd(Place& place) {
    if (!await("a process ends", [&] { return place.child->hasEnded(); })) return;
    const int status = place.child->exitStatus();
    place.child.reset();
    if (status != 0) complain("a process ends with " + std::to_string(status));
}

}  // namespace soak
