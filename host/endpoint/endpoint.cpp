#include "host/endpoint/endpoint.h"

#include <fcntl.h>
#include <sys/epoll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/arena/central_lists.h"
#include "host/arena/domain_path.h"
#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/endpoint/answers.h"
#include "host/endpoint/event_tags.h"
#include "host/endpoint/fast_path.h"
#include "host/mailbox/broadcast.h"
#include "host/mailbox/doorbell.h"
#include "host/mailbox/take_all_stack.h"
#include "host/recovery/retire.h"
#include "host/recovery/slot_reservation.h"
#include "host/system/clock.h"
#include "host/system/log.h"

namespace linx {
namespace {

bool duplicate(int descriptor, ScopedDescriptor& copy) {
    copy.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    return copy.get() != -1;
}

}  // namespace

std::unique_ptr<Endpoint> Endpoint::open(const Name& name) {
    forks::acknowledge();
    const std::shared_ptr<Domain> domain = Domain::join();
    std::unique_ptr<Endpoint> endpoint = domain == nullptr ? nullptr : openIn(domain, name);
    if (endpoint == nullptr) {
        const int failure = errno;
        log(LogBit::notable, [&] {
            const std::string path = domainPath();
            return std::string("cannot open '") + name.text() + "' in the domain " +
                   (path.empty() ? std::getenv("LINX_DOMAIN") : path) + ": " + std::strerror(failure);
        });
    }
    return endpoint;
}

/// Null with errno. All that can fail comes before the store that opens the endpoint: nobody sees one that fails.
std::unique_ptr<Endpoint> Endpoint::openIn(const std::shared_ptr<Domain>& domain, const Name& name) {
    const Arena& arena = domain->arena();
    ScopedDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (epoll.get() == -1) return nullptr;
    const DomainLock lock(*domain);
    if (!lock.isHeld()) return nullptr;
    SlotReservation reserved(lock, name);
    if (!reserved) return nullptr;
    // Who hunts for the name is answered with a descriptor that is put aside before.
    ScopedDescriptor spare;
    const bool isWatched = watch(epoll.get(), reserved.doorbell().get(), EPOLLIN, event_tag::doorbell);
    if (!isWatched || (isHunted(arena, name) && !duplicate(epoll.get(), spare))) return nullptr;
    errno = ENOMEM;
    std::unique_ptr<Endpoint> endpoint(new (std::nothrow)
                                           Endpoint(domain, reserved.spid(), epoll, reserved.doorbell()));
    if (endpoint == nullptr) return nullptr;
    spare.reset();
    reserved.commit();
    endpoint->owesAnswers_ = !answerHunts(lock, endpoint->spid_, name);  // only if another thread took the descriptor
    if (endpoint->owesAnswers_) endpoint->callLater();
    return endpoint;
}

Endpoint::Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& doorbell)
    : domain_(std::move(domain)),
      spid_(spid),
      slot_(domain_->arena().slot(indexOf(spid))),
      epoll_(epoll.release()),
      doorbell_(doorbell.release()),
      entry_(forks::stamp()),
      nextEntry_(forks::stamp()),
      forksSeen_(forks::stamp()),
      generation_(forks::generation()),
      forkRound_(slot_.forkRound.loadRelaxed()),
      pool_(*domain_, spid),
      peers_(*domain_, slot_, epoll_.get()),
      budget_(SpinBudget::fromEnvironment()) {}

Endpoint::~Endpoint() {
    if (disowned_) {
        peers_.abandon();
    } else if (isStillOpen()) {
        leaveDomain();
    }
    for (char* name : names_) std::free(name);
}

/// Whether the slot is still this endpoint's: one that was taken for dead, because somebody removed its doorbell,
/// must not touch what is another's by now.
bool Endpoint::isStillOpen() const {
    return slot().life.loadRelaxed() == (spid_ | lifeOpen);
}

void Endpoint::leaveDomain() {
    if (!takeMailboxIfRoom()) ++held_;  // what is in it is looked for with what the user holds
    const uint32_t any[] = {0};
    while (const Ref ref = queue_.take(any).ref) discard(ref);
    while (const Ref ref = timers_.takeAny()) discard(ref);
    for (uint32_t index = 0; index < peers_.size(); ++index) {
        for (const Ref ref : peers_.takeNotices(index)) discard(ref);
    }
    pool_.takeReturned();  // or all of the arena would be looked through for it
    end();                 // where somebody has removed the domain nobody can look for this endpoint any more
}

/// Nobody can be told that this has failed, and while a forked process has a copy nobody else sees to it.
void Endpoint::end() {
    constexpr int attempts = 3;
    for (int left = attempts; left != 0 && !endInside(); --left) {
    }
}

/// False when the domain lock cannot be had.
bool Endpoint::endInside() {
    const DomainLock lock(*domain_);
    if (!lock.isHeld()) return false;
    if (!isStillOpen()) return true;
    if (owesRings_) ringSleepers(*domain_);
    const ScopedDescriptor doorbell(doorbell::open(domain_->directory(), spid_));
    giveUpHunts();
    const bool leavesNone = pool_.giveUp() && held_ == 0;
    reap(lock, dead_.data(), dead_.size());
    retire(lock, spid_, leavesNone ? Leftovers::none : Leftovers::held);
    doorbell_.reset();
    // Whoever holds the doorbell has been told by that, unless a forked process still has a copy of it. Under the
    // domain lock: should this process die meanwhile, the repair tells.
    if (doorbell.get() == -1 || !doorbell::isDead(doorbell.get())) tellOfEnds(*domain_);
    return true;
}

void Endpoint::giveUpHunts() {
    forEachHunt(arena(), [&](Hunt& hunt) {
        if (hunt.hunter.loadRelaxed() != spid_) return;
        clearHunt(hunt);
        const BlockRef block = arena().blockAt(hunt.signal.loadRelaxed());
        if (!block || block->owner.loadRelaxed() != (spid_ | ownerQueued)) return;
        central::abandon(arena(), block);
        central::push(arena(), block);
    });
}

int Endpoint::descriptor() {
    ScopedDescriptor copy;
    while (givenDescriptor_ == -1 && (duplicate(epoll_.get(), copy) || makeRoom())) {
        givenDescriptor_ = copy.release();
    }
    return givenDescriptor_;
}

bool Endpoint::enter() {
    return enterAtOnce() || enterInDoubt();
}

/// The stamp is not the one with which one may enter, or a thread is inside.
bool Endpoint::enterInDoubt() {
    uint32_t stamp;
    if (!occupy(stamp)) {
        errno = EINVAL;
        if (isMaker()) return false;
        doorbell_.reset();  // or the end of the process that has the endpoint would go unnoticed
        errno = ECHILD;
        return false;
    }
    if (forksSeen_ != stamp && !claim(stamp)) {
        exit();
        errno = ECHILD;
        return false;
    }
    if (owesRings_) {
        const uint64_t tick = coarseMilliseconds();
        if (tick != ringsTriedAt_) ringOwed();  // all slots are looked at: too much for each operation
        ringsTriedAt_ = tick;
    }
    return true;
}

/// Stores that a thread is inside, unless one is already; a child that is made from then on finds it so. `stamp` is
/// that of the process.
bool Endpoint::occupy(uint32_t& stamp) {
    for (;;) {
        forks::awaitFork();
        const uint32_t entry = entry_.load(std::memory_order_relaxed);
        if (entry == inside) return false;
        entry_.store(inside, std::memory_order_relaxed);
        forks::afterEntering();
        stamp = forks::stamp();
        if (stamp != forks::forking) return true;
        entry_.store(entry, std::memory_order_relaxed);
    }
}

/// Whether this is the process that has the endpoint, or had it before a fork in which it was the parent.
bool Endpoint::isMaker() const {
    return generation_ == forks::generation() && !forks::isSmuggled(generation_);
}

/// After a fork both processes hold the same copy of this object; the slot's round, raised once, tells them apart.
/// One compare-and-swap decides and publishes nothing, so any order would do.
bool Endpoint::claim(uint32_t stamp) {
    uint32_t round = forkRound_;
    const bool mayHave = !disowned_ && !forks::isSmuggled(generation_) && isStillOpen();
    if (!mayHave || !slot().forkRound.casSeqCst(round, forkRound_ + 1)) {
        disown();
        return false;
    }
    forkRound_ += 1;
    forksSeen_ = stamp;
    nextEntry_ = owesRings_ ? overdue : stamp;
    generation_ = forks::generation();
    return true;
}

/// Lets go of the doorbell, so that the end of the process that has the endpoint does not go unnoticed.
void Endpoint::disown() {
    if (disowned_) return;
    disowned_ = true;
    doorbell_.reset();
    peers_.abandon();
}

Endpoint::Departure Endpoint::leave() {
    uint32_t stamp;
    if (!occupy(stamp)) {
        errno = EINVAL;
        if (isMaker()) return Departure::refused;
        doorbell_.reset();  // as above
        return Departure::forgotten;
    }
    const bool isUnclaimed = !disowned_ && isStillOpen() && slot().forkRound.loadRelaxed() == forkRound_;
    if (isUnclaimed && !isMaker()) {
        disown();
        return Departure::leaves;
    }
    if ((disowned_ || forksSeen_ != stamp) && !claim(stamp)) {
        errno = ECHILD;
        return Departure::stays;
    }
    return Departure::leaves;
}

int Endpoint::hunt(const Name& name, LinxSignal** signal) {
    BlockRef block;
    if (!takeOver(signal, LINX_OS_HUNT_SIG, block)) return -1;
    const int result = hunt(name, block);
    updateReadiness();
    return result;
}

int Endpoint::hunt(const Name& name, const BlockRef& block) {
    for (;;) {
        const Spid found = findName(arena(), name);
        if (found != 0 && (found == spid_ || connect(found) != nullptr)) return queueOwn(block, found);
        // One that has died still has its name until it is reaped; any other trouble with its doorbell is the
        // caller's.
        if (found != 0 && (errno != ECONNRESET || !reapNow(found))) return refuse(block, errno);
        bool opened = false;
        int failure;
        do {
            failure = keepHunt(name, block, opened);
            if (failure != 0) errno = failure;
        } while (failure != 0 && makeRoom());
        if (failure != 0) return refuse(block, failure);
        if (!opened) return 0;
    }
}

/// Leaves the hunt pending unless the name has been opened in the meantime. Returns 0 or an errno value.
int Endpoint::keepHunt(const Name& name, const BlockRef& block, bool& opened) {
    const DomainLock lock(*domain_);
    if (!lock.isHeld()) return errno;
    if (!isStillOpen()) return ECONNABORTED;  // nobody would clear it up
    opened = findName(arena(), name) != 0;
    if (opened) return 0;
    park(block, spid_);
    const int failure = addHunt(arena(), spid_, name, block.ref);
    if (failure == EDQUOT) return ENOSPC;
    // There may be hunts of the dead, whom nobody has missed yet.
    return failure == ENOSPC && reapAllDeadIfDue(lock) ? addHunt(arena(), spid_, name, block.ref) : failure;
}

LinxRef Endpoint::attach(LinxSignal** notice, Spid spid) {
    if (find(*notice).block == nullptr) {
        errno = EINVAL;
        return 0;
    }
    BlockRef block;
    takeOver(notice, 0, block);
    if (!everExisted(arena(), spid)) {
        refuse(block, ESRCH);
        return 0;
    }
    Peer* peer = nullptr;
    const bool ended = !isOpen(arena(), spid);
    if (!ended && spid != spid_) peer = connect(spid);
    if (peer == nullptr && spid != spid_ && !ended && errno != ECONNRESET) {
        refuse(block, errno);
        updateReadiness();
        return 0;
    }
    if (peer != nullptr) {
        if (!supervise(*peer, block)) {
            updateReadiness();  // the peer may have come in the place of one that has ended
            return 0;
        }
    } else if (spid == spid_) {
        park(block, spid);
        ++held_;  // nobody learns of one's own end: the notice lies with the user's until then
    } else if (queueOwn(block, spid) == -1) {  // what it had sent comes before the news of its end
        return 0;
    }
    updateReadiness();
    return nextReference();
}

LinxRef Endpoint::nextReference() {
    lastReference_ = timers_.referenceAfter(lastReference_);
    return lastReference_;
}

/// False with errno ENOMEM, the notice freed.
bool Endpoint::supervise(Peer& peer, const BlockRef& notice) {
    try {
        peers_.supervise(peer, notice.ref);
    } catch (const std::bad_alloc&) {
        refuse(notice, ENOMEM);
        return false;
    }
    park(notice, peer.spid);
    return true;
}

char* Endpoint::nameOf(Spid spid) {
    Name name;
    if (!nameOfSpid(arena(), spid, name)) {
        errno = ESRCH;
        return nullptr;
    }
    std::unique_ptr<char, decltype(&std::free)> copy(static_cast<char*>(std::malloc(name.length() + 1)), std::free);
    if (copy == nullptr) return nullptr;
    std::memcpy(copy.get(), name.text(), name.length() + 1);
    names_.insert(copy.get());
    return copy.release();
}

int Endpoint::freeName(char** name) {
    if (names_.erase(*name) == 0) {
        errno = EINVAL;
        return -1;
    }
    std::free(*name);
    *name = nullptr;
    return 0;
}

}  // namespace linx
