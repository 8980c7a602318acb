#include "tests/storm/storm.h"

#include <time.h>

#include <algorithm>

#include "tests/kit/arena_order.h"
#include "tests/storm/onlooker.h"
#include "tests/traffic/worker.h"

namespace storm {
namespace {

constexpr uint32_t killsBetweenRests = 16;
constexpr uint32_t killsOfAnOnlooker = 4;  ///< of workers, for each

using std::chrono::microseconds;
using std::chrono::milliseconds;

void pause() {
    const timespec moment = {0, 200000};
    nanosleep(&moment, nullptr);
}

}  // namespace

void Storm::rage(uint32_t kills) {
    ledger_.seats = seats;
    for (uint32_t worker = 0; worker < seats; ++worker) spawn(worker);
    replaceOnlooker();
    while (kills_ < kills && ledger_.complaintCount == 0) {
        // Mostly at once, so that the dead are found while others still clear up after those before.
        watch(microseconds(draw(4) == 0 ? draw(20000) : draw(1500)));
        strike(draw(seats));
        if (draw(killsOfAnOnlooker) == 0) replaceOnlooker();
    }
    calm();
}

void Storm::spawn(uint32_t worker) {
    Place& place = places_[worker];
    place.process = ++processes_;
    place.stopped = false;
    place.pulse.restart(Clock::now());
    const uint32_t seed = draw(~0u);
    place.child = std::make_unique<Child>([this, worker, process = place.process, seed](Line& parent) {
        traffic::work(ledger_, {}, parent, worker, process, seed);
    });
}

void Storm::strike(uint32_t worker) {
    Place& place = places_[worker];
    if (!place.stopped && draw(3) == 0) return stop(worker);
    kill(worker);
    spawn(worker);
    // Otherwise who waits for something that never comes would be killed long before anybody saw that he waits.
    if (kills_ % killsBetweenRests == 0) rest();
}

void Storm::kill(uint32_t worker) {
    Place& place = places_[worker];
    ledger_.doomed[worker] = place.process;
    const uint32_t life = ledger_.latest[worker];
    place.child->kill9();
    ++kills_;
    const std::string disagreement = compareBooksOfKilled(ledger_, life);
    if (!disagreement.empty()) ledger_.complain("killed, " + disagreement);
}

/// Kills who looks on, wherever it is, and has another do it.
void Storm::replaceOnlooker() {
    if (onlooker_ != nullptr) {
        onlooker_->kill9();
        ++killedOnlookers_;
    }
    const uint32_t seed = draw(~0u);
    onlooker_ = std::make_unique<Child>([this, seed](Line&) { lookOn(ledger_, seed); });
}

void Storm::stop(uint32_t worker) {
    Place& place = places_[worker];
    lookAt(worker, Clock::now());
    place.child->stop();
    place.stopped = true;
    place.stoppedUntil = Clock::now() + microseconds(draw(30000));
    ++stops_;
}

void Storm::cont(Place& place) {
    place.child->cont();
    place.stopped = false;
    place.pulse.restart(Clock::now());
}

void Storm::watch(Clock::duration time) {
    const Clock::time_point end = Clock::now() + time;
    for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
        for (uint32_t worker = 0; worker < seats; ++worker) {
            Place& place = places_[worker];
            if (place.stopped && place.stoppedUntil <= now) cont(place);
            lookAt(worker, now);
        }
        pause();
    }
}

void Storm::lookAt(uint32_t worker, Clock::time_point now) {
    Place& place = places_[worker];
    if (place.stopped) return;
    longestStall_ = std::max(longestStall_, place.pulse.look(ledger_.beats[worker], now));
    if (!place.pulse.hasStopped()) return;
    ledger_.complain("worker " + std::to_string(worker) + " makes no progress");
    place.pulse.restart(now);
}

/// Has the workers come to rest: all that was asked is answered, whoever is absent is found, and every end is told.
bool Storm::settle() {
    for (Place& place : places_) {
        if (place.stopped) cont(place);
    }
    ledger_.finish = true;
    const Clock::time_point limit = Clock::now() + 2 * traffic::longestPatience;
    while (!ledger_.allSettled() && ledger_.complaintCount == 0 && Clock::now() < limit) watch(milliseconds(1));
    if (ledger_.allSettled()) return true;
    ledger_.complain("the workers do not come to rest");
    return false;
}

void Storm::rest() {
    if (!settle()) return;
    ++rests_;
    inspect();
    ledger_.goOn();
    for (const Place& place : places_) place.child->tell();
}

/// Has the workers settle, compare what they sent and received, and end.
void Storm::calm() {
    if (!settle()) return;
    ledger_.leave = true;
    if (onlooker_->exitStatus() != 0) ledger_.complain("the onlooker does not end");
    for (const Place& place : places_) place.child->tell();
    if (ledger_.checked.reaches(seats)) inspect();
    ledger_.dismissed = 1;
    for (uint32_t worker = 0; worker < seats; ++worker) {
        const int status = places_[worker].child->exitStatus();
        if (status == 0) continue;
        ledger_.complain("worker " + std::to_string(worker) + " ends with " + std::to_string(status));
    }
}

/// Looks through the arena while all are open and nobody does anything.
void Storm::inspect() {
    const std::string broken = linxtest::brokenAtRest(kills_);
    if (!broken.empty()) ledger_.complain("the arena at rest: " + broken);
    const std::string disagreement = compareBooks(ledger_);
    if (!disagreement.empty()) ledger_.complain("at rest, " + disagreement);
}

}  // namespace storm
