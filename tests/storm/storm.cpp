#include "tests/storm/storm.h"

#include <time.h>

#include <algorithm>

#include "tests/storm/worker.h"

namespace storm {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds longestPatience(5);

void work(Ledger& ledger, uint32_t worker, uint32_t process, uint32_t seed) {
    do {
        Worker(ledger, worker, process, seed++).live();
    } while (!ledger.leave);
}

void pause() {
    const timespec moment = {0, 200000};
    nanosleep(&moment, nullptr);
}

}  // namespace

void Storm::rage(uint32_t kills) {
    for (uint32_t worker = 0; worker < workerCount; ++worker) spawn(worker);
    while (kills_ < kills && ledger_.complaintCount == 0) {
        // Mostly at once, so that the dead are found while others still clear up after those before.
        watch(microseconds(draw(4) == 0 ? draw(20000) : draw(1500)));
        strike(draw(workerCount));
    }
    calm();
}

void Storm::spawn(uint32_t worker) {
    Place& place = places_[worker];
    place.process = ++processes_;
    place.stopped = false;
    place.beatAt = Clock::now();
    ledger_.doomed[place.process % maxLives] = false;
    const uint32_t seed = draw(~0u);
    place.child = std::make_unique<Child>(
        [this, worker, process = place.process, seed](Line&) { work(ledger_, worker, process, seed); });
}

void Storm::strike(uint32_t worker) {
    Place& place = places_[worker];
    if (!place.stopped && draw(3) == 0) return stop(worker);
    kill(worker);
    spawn(worker);
}

void Storm::kill(uint32_t worker) {
    Place& place = places_[worker];
    ledger_.doomed[place.process % maxLives] = true;
    place.child->kill9();
    ++kills_;
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
    place.beatAt = Clock::now();
}

void Storm::watch(Clock::duration time) {
    const Clock::time_point end = Clock::now() + time;
    for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
        for (uint32_t worker = 0; worker < workerCount; ++worker) {
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
    const Clock::duration stall = now - place.beatAt;
    longestStall_ = std::max(longestStall_, stall);
    const uint32_t beats = ledger_.beats[worker];
    if (beats != place.beats) {
        place.beats = beats;
        place.beatAt = now;
    } else if (stall > longestPatience) {
        ledger_.complain("worker " + std::to_string(worker) + " makes no progress");
        place.beatAt = now;
    }
}

bool Storm::allSettled() const {
    return std::all_of(std::begin(ledger_.settled), std::end(ledger_.settled),
                       [](const auto& is) { return is.load(); });
}

/// Has the workers come to rest, compare what they sent and received, and end.
void Storm::calm() {
    for (Place& place : places_) {
        if (place.stopped) cont(place);
    }
    ledger_.finish = true;
    const Clock::time_point limit = Clock::now() + 2 * longestPatience;
    while (!allSettled() && ledger_.complaintCount == 0 && Clock::now() < limit) watch(milliseconds(1));
    if (!allSettled()) return ledger_.complain("the workers do not come to rest");
    ledger_.leave = true;
    for (uint32_t worker = 0; worker < workerCount; ++worker) {
        const int status = places_[worker].child->exitStatus();
        if (status != 0)
            ledger_.complain("worker " + std::to_string(worker) + " ends with " + std::to_string(status));
    }
}

}  // namespace storm
