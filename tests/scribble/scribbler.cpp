#include "tests/scribble/scribbler.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "host/arena/arena_file.h"
#include "host/system/scoped_descriptor.h"
#include "tests/scribble/onlooker.h"
#include "tests/scribble/worker.h"

namespace scribble {
namespace {

constexpr uint32_t roundsOfDomain = 8;
constexpr uint32_t mostWords = 64;          ///< that are garbled in a round
constexpr uint32_t operationsOfRound = 16;  ///< that every worker ends in a round, at least
constexpr std::chrono::seconds longestPatience(20);

void pause(long microseconds = 200) {
    const timespec moment = {0, microseconds * 1000};
    nanosleep(&moment, nullptr);
}

/// The domain's arena, mapped by somebody who is no endpoint.
class Mapping {
public:
    explicit Mapping(const std::string& path) {
        const linx::ScopedDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
        pageCount_ = linx::checkArenaFile(file.get());
        if (pageCount_ != 0) mapping_ = linx::mapArenaFile(file.get(), pageCount_);
    }

    char* base() const { return static_cast<char*>(mapping_.get()); }
    uint32_t pageCount() const { return pageCount_; }

private:
    linx::ArenaMapping mapping_;
    uint32_t pageCount_ = 0;
};

void work(Ledger& ledger, uint32_t worker, uint32_t seed) {
    if (worker == onlooker) return lookOn(ledger);
    while (!ledger.leave) Worker(ledger, worker, seed++).live();
}

}  // namespace

void Scribbler::scribble(uint32_t first, uint32_t count) {
    const uint32_t end = first + count;
    for (uint32_t round = first; round < end && complaints_.empty();) {
        const uint32_t domain = round / roundsOfDomain;
        const uint32_t next = std::min(end, (domain + 1) * roundsOfDomain);
        scribbleDomain(domain, round, next);
        round = next;
    }
    // The last domain that was garbled is gone too without a trace.
    if (complaints_.empty()) scribbleDomain(end / roundsOfDomain + 1, end, end);
}

void Scribbler::scribbleDomain(uint32_t domain, uint32_t firstRound, uint32_t endRound) {
    random_.seed(seed_ + domain);  // so that one can begin with any domain
    ++domains_;
    const std::string where = "round " + std::to_string(firstRound);
    if (startWorkers(where + ", in a fresh domain")) scribbleRounds(firstRound, endRound);
    for (const std::string& name : domain_.files()) unlink(domain_.pathOf(name).c_str());
    endWorkers("round " + std::to_string(endRound) + ", leaving");
}

/// Fresh workers in a fresh domain have all to hear of each other.
bool Scribbler::startWorkers(const std::string& where) {
    ledger_->leave = false;
    for (uint32_t i = 0; i < workerCount; ++i) ledger_->met[i] = 0;
    for (uint32_t i = 0; i < processCount; ++i) {
        const uint32_t seed = draw(~0u);
        workers_[i] = std::make_unique<Child>([this, i, seed](Line&) { work(*ledger_, i, seed); });
    }
    return await(where, [&](uint32_t worker) {
        const uint32_t others = ((1u << workerCount) - 1) & ~(1u << worker);
        return worker == onlooker || (ledger_->met[worker] & others) == others;
    });
}

void Scribbler::scribbleRounds(uint32_t firstRound, uint32_t endRound) {
    const Mapping arena(domain_.pathOf("arena"));
    if (arena.base() == nullptr) return complaints_.push_back("there is no arena");
    const uint32_t only = draw(2 * linxtest::regionCount);  // this region alone, in every other domain
    for (uint32_t round = firstRound; round < endRound && complaints_.empty(); ++round) {
        for (uint32_t left = 1 + draw(mostWords); left != 0; --left) {
            const uint32_t region = only < linxtest::regionCount ? only : draw(linxtest::regionCount);
            garble(arena.base(), arena.pageCount(), linxtest::Region{region});
            if (draw(16) == 0) pause(20);  // amid their work
        }
        if (awaitBeats("round " + std::to_string(round))) ++rounds_;
    }
}

void Scribbler::garble(char* base, uint32_t pageCount, linxtest::Region region) {
    const auto drawOne = [&](uint32_t bound) { return draw(bound); };
    linxtest::Garbler<decltype(drawOne)> garbler(base, pageCount, drawOne);
    bytes_[static_cast<uint32_t>(region)] += garbler.garble(region);
}

template <class IsDone>
bool Scribbler::await(const std::string& where, IsDone isDone) {
    const Clock::time_point limit = Clock::now() + longestPatience;
    for (uint32_t worker = 0; worker < processCount;) {
        const bool ended = hasEnded(worker);
        if (isDone(worker)) {
            ++worker;
        } else if (ended) {
            complainOfEnd(worker, where);
            return false;
        } else if (Clock::now() > limit) {
            complainOfHang(worker, where);
            return false;
        } else {
            pause();
        }
    }
    return true;
}

/// Every worker goes on from now on.
bool Scribbler::awaitBeats(const std::string& where) {
    std::array<uint32_t, processCount> before;
    for (uint32_t i = 0; i < processCount; ++i) before[i] = ledger_->beats[i];
    return await(where, [&](uint32_t worker) {
        return ledger_->beats[worker] - before[worker] >= (worker == onlooker ? 1 : operationsOfRound);
    });
}

bool Scribbler::hasEnded(uint32_t worker) const {
    siginfo_t end = {};
    waitid(P_PID, static_cast<id_t>(workers_[worker]->pid()), &end, WEXITED | WNOHANG | WNOWAIT);
    return end.si_pid != 0;
}

void Scribbler::complainOfEnd(uint32_t worker, const std::string& where) {
    ++crashes_;
    const int status = workers_[worker]->exitStatus();
    workers_[worker].reset();
    complaints_.push_back(where + ": worker " + std::to_string(worker) + " ends with " + std::to_string(status));
}

void Scribbler::complainOfHang(uint32_t worker, const std::string& where) {
    ++hangs_;
    complaints_.push_back(where + ": worker " + std::to_string(worker) + " makes no progress");
    kill(workers_[worker]->pid(), SIGABRT);  // a sanitizer tells where it is
    workers_[worker]->exitStatus();
    workers_[worker].reset();
}

void Scribbler::endWorkers(const std::string& where) {
    ledger_->leave = true;
    if (complaints_.empty()) await(where, [&](uint32_t worker) { return hasEnded(worker); });
    for (uint32_t worker = 0; worker < processCount && complaints_.empty(); ++worker) {
        const int status = workers_[worker]->exitStatus();
        if (status == 0) continue;
        ++crashes_;
        complaints_.push_back(where + ": worker " + std::to_string(worker) + " ends with " + std::to_string(status));
    }
    for (std::unique_ptr<Child>& worker : workers_) worker.reset();
}

}  // namespace scribble
