#include "host/endpoint/endpoint.h"

#include <fcntl.h>
#include <sys/epoll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/arena/domain_path.h"
#include "host/endpoint/answers.h"
#include "host/endpoint/event_tags.h"
#include "host/endpoint/fast_path.h"
#include "host/mailbox/broadcast.h"
#include "host/mailbox/doorbell.h"
#include "host/record/maker.h"
#include "host/recovery/retire.h"
#include "host/recovery/slot_reservation.h"
#include "host/system/clock.h"
#include "host/system/environment.h"
#include "host/system/log.h"
#include "host/system/log_mask.h"

namespace linx {
namespace {

bool duplicate(int descriptor, ScopedDescriptor& copy) {
    copy.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    return copy.get() != -1;
}

}  // namespace

std::unique_ptr<Endpoint> Endpoint::open(const Name& name, uint32_t options) {
    forks::acknowledge();
    const std::shared_ptr<Domain> domain = Domain::join();
    std::unique_ptr<Endpoint> endpoint = domain == nullptr ? nullptr : openIn(domain, name, options);
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

/// Null with errno. All that can fail comes before the commit: nobody sees an endpoint that fails, unless it is a
/// link, for which others are pending: to be told of these takes memory, which only an open endpoint has.
std::unique_ptr<Endpoint> Endpoint::openIn(const std::shared_ptr<Domain>& domain, const Name& name,
                                           uint32_t options) {
    ScopedDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (epoll.get() == -1) return nullptr;
    // Before the lock, since a bad value is logged, and writing the log may block.
    const Opening opening{name, options, makerNow(), SpinBudget::fromEnvironment(),
                          numberFromEnvironment("LINX_RECORD", 0, 1, 1) != 0};
    std::vector<Sought> sought;
    std::unique_ptr<Endpoint> endpoint;
    {
        const DomainLock lock(*domain);
        if (!lock.isHeld()) return nullptr;
        // Under the lock with which it opens: who hunts from now on finds the link.
        if ((options & LINX_OPEN_LINK) != 0) sought = soughtBehind(domain->arena(), name);
        endpoint = openLocked(lock, domain, epoll, opening);
    }
    if (endpoint == nullptr || sought.empty()) return endpoint;
    if (endpoint->hunts_.tellSelf(sought)) {
        endpoint->updateReadiness();
        return endpoint;
    }
    const int failure = errno;
    endpoint.reset();
    errno = failure;
    return nullptr;
}

std::unique_ptr<Endpoint> Endpoint::openLocked(const DomainLock& lock, const std::shared_ptr<Domain>& domain,
                                               ScopedDescriptor& epoll, const Opening& opening) {
    const Name& name = opening.name;
    SlotReservation reservation(lock, name, opening.options, opening.maker);
    if (!reservation) return nullptr;
    if (!watch(epoll.get(), reservation.doorbell().get(), EPOLLIN, event_tag::doorbell)) return nullptr;
    // Answering hunts for the name takes a descriptor, which is set aside here.
    ScopedDescriptor spare;
    if (isHunted(domain->arena(), name) && !duplicate(epoll.get(), spare)) return nullptr;
    errno = ENOMEM;
    std::unique_ptr<Endpoint> endpoint(
        new (std::nothrow) Endpoint(domain, reservation.spid(), epoll, reservation.doorbell(), opening));
    if (endpoint == nullptr) return nullptr;
    spare.reset();
    reservation.commit();
    if (!answerHunts(lock, reservation.spid(), name)) {  // only if another thread has taken the descriptor
        endpoint->chores_.oweAnswers();
        endpoint->inbox_.timeouts().callAt(endpoint->chores_.due());
    }
    return endpoint;
}

Endpoint::Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& doorbell,
                   const Opening& opening)
    : domain_(std::move(domain)),
      unrecorded_(opening.isRecorded ? nullptr : new EventRing{}),
      self_{*domain_, spid, domain_->arena().slot(indexOf(spid)),
            Recorder(domain_->arena().slot(indexOf(spid)),
                     opening.isRecorded ? domain_->arena().events(indexOf(spid)) : *unrecorded_)},
      epoll_(epoll.release()),
      ownership_(self_),
      signals_(self_),
      peers_(self_, epoll_.get()),
      inbox_(self_, signals_, peers_, epoll_.get(), doorbell, opening.budget),
      chores_(self_, ownership_, signals_.pool(), peers_),
      outbox_(self_, signals_, peers_, inbox_, chores_),
      hunts_(self_, signals_, peers_, inbox_, outbox_),
      supervision_(self_, signals_, peers_, inbox_),
      logMask_(LogClient::Instance()->Level() & log_mask::bits) {
    self_.slot.logMask.storeRelaxed(logMask_);
}

Endpoint::~Endpoint() {
    if (ownership_.isDisowned()) {
        peers_.abandon();
    } else if (self_.isStillOpen()) {
        leaveDomain();
    }
    for (char* name : names_) std::free(name);
}

void Endpoint::leaveDomain() {
    inbox_.discardAll();
    peers_.takeNotices([&](Ref ref) { signals_.discard(ref); });
    signals_.pool().takeReturned();  // or all of the arena would be looked through for it
    end();  // where somebody has removed the domain nobody can look for this endpoint any more
}

/// Retries: a failure cannot be reported, and while a forked copy lives, nobody reaps this endpoint.
void Endpoint::end() {
    constexpr int attempts = 3;
    for (int left = attempts; left != 0 && !endInside(); --left) {
    }
}

/// False when the domain lock cannot be had.
bool Endpoint::endInside() {
    const DomainLock lock(*domain_);
    if (!lock.isHeld()) return false;
    if (!self_.isStillOpen()) return true;
    self_.record.closed();
    if (chores_.owesRings()) ringSleepers(*domain_);
    const ScopedDescriptor doorbell(doorbell::open(domain_->directory(), self_.spid));
    hunts_.giveUp(lock);
    const bool leavesNone = signals_.pool().giveUp() && signals_.noneHeld();
    reap(lock, peers_.dead().data(), peers_.dead().size());
    retire(lock, self_.spid, leavesNone ? Leftovers::none : Leftovers::held);
    inbox_.closeDoorbell();
    // Closing it tells all holders of the doorbell, unless a forked process still has a copy of it. Done under the
    // domain lock: if this process dies here, the repair tells them.
    if (doorbell.get() == -1 || !doorbell::isDead(doorbell.get())) tellOfEnds(*domain_);
    return true;
}

/// The slow path of enter(): whether an operation may begin.
bool Endpoint::enterInDoubt() {
    switch (ownership_.enter()) {
        case Ownership::Entry::entered:
            chores_.runBeforeOperation();
            return true;
        case Ownership::Entry::occupied:
            errno = EINVAL;
            return false;
        case Ownership::Entry::copied:
            inbox_.closeDoorbell();
            break;
        case Ownership::Entry::lost:
            letGo();
            exit();
            break;
    }
    errno = ECHILD;
    return false;
}

/// The endpoint is another process's: this copy must not hide its end from others.
void Endpoint::letGo() {
    inbox_.closeDoorbell();
    peers_.abandon();
}

Endpoint::Departure Endpoint::leave() {
    const Departure departure = ownership_.leave();
    if (departure == Departure::refused) errno = EINVAL;
    if (departure == Departure::stays) errno = ECHILD;
    if (departure == Departure::forgotten) inbox_.closeDoorbell();
    if (ownership_.isDisowned()) letGo();
    return departure;
}

int Endpoint::descriptor() {
    ScopedDescriptor copy;
    while (givenDescriptor_ == -1 && (duplicate(epoll_.get(), copy) || makeRoom())) {
        givenDescriptor_ = copy.release();
    }
    return givenDescriptor_;
}

/// After running out of descriptors: disconnects a peer to free one. False, with errno unchanged, if that was not
/// possible.
bool Endpoint::makeRoom() {
    if (!peers_.makeRoom()) return false;
    updateReadiness();  // nothing tells any more of what that peer had sent last
    return true;
}

LinxSignal* Endpoint::allocate(uint32_t size, uint32_t number) {
    LinxSignal* signal;
    do {
        signal = signals_.allocate(size, number);
    } while (signal == nullptr && makeRoomForSignal());
    return signal;
}

/// After a failed allocation: whether to try again. If so, a peer was disconnected or dead ones reaped, so retries
/// end. If not, errno stays.
bool Endpoint::makeRoomForSignal() {
    return makeRoom() || (errno == ENOMEM && peers_.reapKnownDead());
}

int Endpoint::free(LinxSignal** signal) {
    const BlockRef block = signals_.takeOver(signal);
    if (!block) return -1;
    signals_.discard(block);
    return 0;
}

Spid Endpoint::sender(LinxSignal** signal) const {
    const BlockRef block = signals_.heldAt(*signal);
    if (block) return senderOf(*block);
    errno = EINVAL;
    return Spid::none;
}

/// Takes a signal out of the user's hands, or makes one of `defaultNumber` when there is none. No block with errno.
BlockRef Endpoint::takeOver(LinxSignal** signal, uint32_t defaultNumber) {
    if (signal != nullptr && *signal != nullptr) return signals_.takeOver(signal);
    LinxSignal* own = allocate(sizeof(LinxSignal), defaultNumber);
    return own == nullptr ? BlockRef{} : signals_.takeOver(&own);
}

int Endpoint::forgo(LinxSignal** signal) {
    const int reason = errno;
    const BlockRef block = signal == nullptr ? BlockRef{} : signals_.takeOver(signal);
    if (block) return signals_.refuse(block, reason);
    errno = reason;
    return -1;
}

int Endpoint::send(LinxSignal** signal, Spid to) {
    const BlockRef block = signals_.takeOver(signal);
    if (!block) return -1;
    Peer* peer = peers_.find(to);
    const int result = peer != nullptr ? outbox_.sendToPeer(block, *peer) : outbox_.sendToStranger(block, to);
    if (peer == nullptr || isReadinessInDoubtAfterSend()) updateReadiness();
    return result;
}

int Endpoint::receive(LinxSignal** signal, const uint32_t* milliseconds, const uint32_t* selection) {
    *signal = nullptr;
    BlockRef block;
    Inbox::Wait ended = Inbox::Wait::mail;
    try {
        if (inbox_.mayMissEvents() || signals_.pool().isUnderPressure()) noticeEvents();
        block = inbox_.take(selection);
        if (!block) ended = await(milliseconds, selection, block);
        updateReadiness();
    } catch (const std::bad_alloc&) {
        // What could not be taken waits in the mailbox: the descriptor says so, and the next call tries again.
        inbox_.notifySelf();
        if (!block) throw;
    }
    if (self_.slot.logMask.loadRelaxed() != logMask_) adoptLogMask();
    if (block) {
        inbox_.timeouts().received(block.ref);
        return signals_.handOut(block, signal);
    }
    if (ended != Inbox::Wait::closed && self_.isStillOpen()) return 0;
    errno = ECONNABORTED;
    return -1;
}

/// Somebody who looks into the domain wants the process to log more, or less.
void Endpoint::adoptLogMask() {
    if (!self_.isStillOpen()) return;
    logMask_ = self_.slot.logMask.loadRelaxed();
    log_mask::choose(logMask_);
}

/// Waits for a signal that the selection allows, and takes it. Tells what ended the wait where there is none.
Inbox::Wait Endpoint::await(const uint32_t* milliseconds, const uint32_t* selection, BlockRef& block) {
    using Wait = Inbox::Wait;
    if (!self_.isStillOpen()) return Wait::closed;
    inbox_.markAwake();
    inbox_.collect();
    block = inbox_.take(selection);
    if (block) return Wait::mail;
    uint64_t deadline = Timers::never;
    if (milliseconds != nullptr)
        deadline = *milliseconds == 0 ? 0 : now() + *milliseconds * nanosecondsPerMillisecond;
    for (;;) {
        const Wait ended = inbox_.wait(deadline, selection, [&] {
            chores_.run();
            outbox_.remindUnrung();
            return chores_.due();
        });
        inbox_.collect();
        block = inbox_.take(selection);
        if (block || ended == Wait::deadline || ended == Wait::closed) return ended;
        if (ended == Wait::event) continue;
        noticeEvents();  // under a stream of unselected signals it never sleeps
        block = inbox_.take(selection);
        if (block) return ended;
    }
}

/// Handles what a busy endpoint whose queue never runs dry would miss. Out of memory, that waits while the queue
/// holds signals, which take no memory to receive.
void Endpoint::noticeEvents() {
    Pool& pool = signals_.pool();
    if (pool.isUnderPressure()) pool.yieldToPressure();
    try {
        inbox_.noticeEvents();
    } catch (const std::bad_alloc&) {
        if (inbox_.isEmpty()) throw;
    }
}

/// Updates the descriptor's readiness. A timer also makes it readable when owed chores are due: the user may wait on
/// nothing else.
void Endpoint::changeReadiness() {
    if (!self_.isStillOpen()) return;
    const int keptErrno = errno;
    inbox_.makeReadinessTrue();
    if (chores_.owesOthers()) {
        inbox_.timeouts().callAt(chores_.due());
    } else {
        inbox_.timeouts().callOff();
    }
    errno = keptErrno;
}

int Endpoint::hunt(const Name& name, LinxSignal** signal) {
    const BlockRef block = takeOver(signal, LINX_OS_HUNT_SIG);
    if (!block) return -1;
    const int result = hunts_.hunt(name, block);
    updateReadiness();
    return result;
}

LinxRef Endpoint::attach(LinxSignal** notice, Spid spid) {
    const BlockRef block = signals_.takeOver(notice);
    if (!block) return 0;
    const bool attached = supervision_.attach(block, spid);
    updateReadiness();
    return attached ? nextReference() : 0;
}

LinxRef Endpoint::nextReference() {
    lastReference_ = inbox_.timeouts().referenceAfter(lastReference_);
    return lastReference_;
}

char* Endpoint::nameOf(Spid spid) {
    Name name;
    if (!nameOfSpid(self_.arena(), spid, name)) {
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

/// Whether a signal that `from` has sent is with somebody else. Who frees it sends it home or makes itself its home;
/// until one of the two can be seen it counts as away.
bool Endpoint::isAway(const LinxSignal* signal, Spid from) const {
    const BlockRef block = self_.arena().blockOfSignal(signal);
    if (!block) return false;
    const OwnerWord owner = block->owner.loadAcquire();  // [owner]: its home is as new
    return owner != OwnerWord::free && spidOf(owner) != from && block->home.loadRelaxed() == from;
}

LinxRef Endpoint::requestTimeout(uint32_t milliseconds, LinxSignal** signal) {
    const BlockRef block = takeOver(signal, LINX_OS_TIMEOUT_SIG);
    if (!block) return 0;
    bool isWatched = inbox_.timeouts().watch();
    while (!isWatched && peers_.makeRoom()) isWatched = inbox_.timeouts().watch();
    LinxRef reference = isWatched ? nextReference() : 0;
    try {
        if (isWatched) inbox_.timeouts().request(reference, milliseconds, block);
    } catch (const std::bad_alloc&) {
        reference = 0;
        errno = ENOMEM;
    }
    if (reference != 0) {
        signals_.markQueued(block, self_.spid);
    } else {
        signals_.refuse(block, errno);
    }
    updateReadiness();
    return reference;
}

int Endpoint::cancelTimeout(LinxRef* reference) {
    const BlockRef block = inbox_.cancelTimeout(*reference);
    if (!block) {
        errno = EINVAL;
        return -1;
    }
    signals_.discard(block);
    updateReadiness();
    *reference = 0;
    return 0;
}

}  // namespace linx
