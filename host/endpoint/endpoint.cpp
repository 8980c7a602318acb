#include "host/endpoint/endpoint.h"

#include <sys/epoll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/arena/common_stacks.h"
#include "host/arena/hunt_table.h"
#include "host/arena/slot_table.h"
#include "host/endpoint/event_tags.h"
#include "host/mailbox/announced_stack.h"
#include "host/mailbox/attention.h"
#include "host/mailbox/bell.h"
#include "host/recovery/retire.h"

namespace linx {
namespace {

/// Readies a slot that nobody else looks at yet. Its life says the new spid already and open last. Relaxed: (K)
/// publishes it; the length is a release like the words of the name (M). A sender that was held up may meet the slot
/// half ready: it changes attention by exchanges that expect its own generation, and leaves a stray in the mailbox.
void prepare(Slot& slot, Spid spid, const Name& name) {
    slot.attention.storeRelaxed(attention::word(spid, attention::quiet));
    slot.takingMailbox.storeRelaxed(0);
    slot.takingReturned.storeRelaxed(0);
    slot.sending.storeRelaxed(0);
    slot.deepestQueue.storeRelaxed(0);
    slot.leasedLines.storeRelaxed(0);
    slot.forkRound.storeRelaxed(0);
    slot.dropped.low.storeRelaxed(0);
    slot.dropped.high.storeRelaxed(0);
    slot.sleeps.storeRelaxed(0);
    slot.rings.storeRelaxed(0);
    slot.nameHash.storeRelaxed(name.hash());
    slot.nameLength.storeRelease(name.length());
    name.writeTo(slot.name);
}

/// Posts a pending hunt's signal to its hunter, from the endpoint just opened. The releases keep the order in which
/// one who dies has written; others see it by the push (F) or the cold lock (P). False with errno, the hunt still
/// pending, when there is no descriptor to ring the hunter with.
bool answer(const ColdSection& cold, Hunt& hunt, Spid found) {
    const Arena& arena = cold.arena();
    const Spid hunter = hunt.hunter.loadRelaxed();
    const Ref ref = hunt.signal.loadRelaxed();
    Block* signal = arena.blockAt(ref);
    if (isOpen(arena, hunter) && signal != nullptr && signal->owner.loadAcquire() == (hunter | ownerQueued)) {
        Slot& slot = arena.slot(indexOf(hunter));
        const ScopedDescriptor bell(bell::open(cold.domain().directory(), hunter));
        if (bell.get() == -1 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) return false;
        if (bell.get() != -1) bell::introduce(bell.get(), found);
        signal->owner.storeRelease(hunter | ownerTransit);
        // From here on a signal that is back with the hunter has been answered: the hunter may have taken it out of
        // its mailbox by the time that somebody asks.
        hunt.hunter.storeRelease(hunter | huntAnswering);
        signal->sender.storeRelease(found);
        // Dying before the push leaves the hunt pending, after it answered: see finishAnswering in repair.cpp. The
        // push is (A) and the look (B).
        if (stack::push(slot.mailbox, *signal, ref) != stack::closed) {
            attention::ring(slot.attention, slot.attention.loadSeqCst(), hunter, indexOf(found),
                            [&] { return bell.get() == -1 ? EPIPE : bell::ring(bell.get()); });
        }
    }
    clearHunt(hunt);
    return true;
}

/// Answers all who hunt for the name. False with errno when not all could be.
bool answerHunts(const ColdSection& cold, Spid found, const Name& name) {
    bool all = true;
    forEachHunt(cold.arena(), [&](Hunt& hunt) {
        const bool isMeant =
            hunt.nameHash.loadRelaxed() == name.hash() && name.equals(hunt.name, hunt.nameLength.loadRelaxed());
        if (all && isMeant) all = answer(cold, hunt, found);
    });
    trimHunts(cold.arena());
    return all;
}

}  // namespace

std::unique_ptr<Endpoint> Endpoint::open(const Name& name) {
    const std::shared_ptr<Domain> domain = Domain::join();
    std::unique_ptr<Endpoint> endpoint;
    if (domain == nullptr || openIn(domain, name, endpoint)) return endpoint;
    const int failure = errno;
    endpoint.reset();  // who has heard of it finds that it has ended
    errno = failure;
    return nullptr;
}

/// False with errno; then there may be an endpoint nevertheless, which must end.
bool Endpoint::openIn(const std::shared_ptr<Domain>& domain, const Name& name, std::unique_ptr<Endpoint>& endpoint) {
    ScopedDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (epoll.get() == -1) return false;
    const ColdSection cold(*domain);
    if (!cold.entered()) return false;
    ScopedDescriptor bell;
    const Spid spid = enter(cold, name, bell);
    if (spid == 0) return false;
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u32 = event_tag::bell;
    if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, bell.get(), &event) == 0) {
        errno = ENOMEM;
        endpoint.reset(new (std::nothrow) Endpoint(domain, spid, epoll, bell));
    }
    if (endpoint == nullptr) {
        const int failure = errno;
        bell::remove(domain->directory(), spid);
        appendEnded(domain->arena(), indexOf(spid));
        errno = failure;
        return false;
    }
    insertName(domain->arena(), indexOf(spid));
    // Only now, so that a slot that is not opened after all takes nothing.
    endpoint->slot().mailbox.storeRelaxed(stack::empty);
    endpoint->slot().returned.storeRelaxed(stack::empty);
    // The one store that opens the endpoint. Release: (K), all that is in the slot is seen with it.
    endpoint->slot().life.storeRelease(spid | lifeOpen);
    return answerHunts(cold, spid, name);
}

/// Takes a slot for the name and readies it. 0 with errno.
Spid Endpoint::enter(const ColdSection& cold, const Name& name, ScopedDescriptor& bell) {
    const Arena& arena = cold.arena();
    const Spid holder = findName(arena, name);
    if (holder != 0) {
        errno = EADDRINUSE;
        if (!hasDied(cold.domain(), holder)) return 0;
        retire(cold, holder, Leftovers::anything);
    }
    uint32_t index = takeSlot(arena, cold.file());
    if (index == 0 && errno == ENOSPC) {
        reapAllDead(cold);
        index = takeSlot(arena, cold.file());
    }
    if (index == 0) return 0;
    Slot& slot = arena.slot(index);
    const uint32_t before = slot.life.loadRelaxed();
    const Spid spid = makeSpid(index, generationOf(before & spidMask) + 1);
    slot.life.storeRelease(spid);  // before the bell, which nobody would find otherwise if this process dies
    bell.reset(bell::make(cold.domain().directory(), spid, cold.domain().fileMode()));
    if (bell.get() == -1) {
        const int failure = errno;
        slot.life.storeRelease(before);
        appendEnded(arena, index);
        errno = failure;
        return 0;
    }
    prepare(slot, spid, name);
    return spid;
}

Endpoint::Endpoint(std::shared_ptr<Domain> domain, Spid spid, ScopedDescriptor& epoll, ScopedDescriptor& bell)
    : domain_(std::move(domain)),
      spid_(spid),
      slot_(domain_->arena().slot(indexOf(spid))),
      epoll_(epoll.release()),
      bell_(bell.release()),
      forksSeen_(forkCount()),
      generation_(processGeneration()),
      pool_(*domain_, spid),
      peers_(*domain_, epoll_.get()),
      budget_(LookingBudget::fromEnvironment()) {}

Endpoint::~Endpoint() {
    if (disowned_) {
        peers_.abandon();
    } else {
        leaveDomain();
    }
    for (char* name : names_) std::free(name);
    if (descriptorGiven_) epoll_.release();
}

void Endpoint::leaveDomain() {
    if (!takeMailboxIfRoom()) ++held_;  // what is in it is looked for with what the user holds
    const uint32_t any[] = {0};
    while (const Ref ref = queue_.take(any).ref) discard(ref);
    while (const Ref ref = timers_.takeAny()) discard(ref);
    while (const Ref ref = peers_.takeAnyNotice()) discard(ref);
    pool_.takeReturned();  // or all of the arena would be looked through for it
    if (end()) return;
    bell_.reset();  // gives the lock a descriptor; where that does not help the others see that this one has ended
    end();
}

/// False when the cold lock could not be had: no descriptor is left, or somebody has removed the domain, and nobody
/// can look for this endpoint any more.
bool Endpoint::end() {
    const ColdSection cold(*domain_);
    if (!cold.entered()) return false;
    giveUpHunts();
    pool_.giveUp();
    retire(cold, spid_, held_ == 0 ? Leftovers::none : Leftovers::held);
    return true;
}

void Endpoint::giveUpHunts() {
    forEachHunt(arena(), [&](Hunt& hunt) {
        if (hunt.hunter.loadRelaxed() != spid_) return;
        clearHunt(hunt);
        const Held held = at(hunt.signal.loadRelaxed());
        if (held.block == nullptr || held.block->owner.loadRelaxed() != (spid_ | ownerQueued)) return;
        common::orphan(arena(), *held.block, held.sizeClass);
        common::push(arena(), *held.block, held.ref, held.sizeClass);
    });
}

int Endpoint::descriptor() {
    descriptorGiven_ = true;
    return epoll_.get();
}

/// After a fork both processes hold the same copy of this object; the slot's round, raised once, tells them apart.
/// One exchange decides and publishes nothing, so any order would do.
bool Endpoint::claim() {
    uint32_t round = forkRound_;
    if (!disowned_ && slot().forkRound.casSeqCst(round, forkRound_ + 1)) {
        forkRound_ += 1;
        forksSeen_ = forkCount();
        generation_ = processGeneration();
        return true;
    }
    disown();
    errno = ECHILD;
    return false;
}

/// Lets go of the bell, so that the end of the process that has the endpoint does not go unnoticed.
void Endpoint::disown() {
    if (disowned_) return;
    disowned_ = true;
    bell_.reset();
    peers_.abandon();
}

bool Endpoint::leave() {
    const bool unclaimed = !disowned_ && slot().forkRound.loadRelaxed() == forkRound_;
    if (!unclaimed || generation_ == processGeneration()) return isOurs();
    disown();
    return true;
}

int Endpoint::hunt(const Name& name, LinxSignal** signal) {
    Held held;
    if (!takeOver(signal, LINX_OS_HUNT_SIG, held)) return -1;
    for (;;) {
        const Spid found = findName(arena(), name);
        if (found != 0 && (found == spid_ || peerFor(found) != nullptr)) {
            return queueOwn(held, found);
        }
        // A dead holder of the name has been reaped by now; any other trouble with its bell is the caller's.
        if (found != 0 && errno != ECONNRESET) return refuse(held, errno);
        bool opened = false;
        int failure;
        do {
            failure = keepHunt(name, held, opened);
            if (failure != 0) errno = failure;
        } while (failure != 0 && peers_.makeRoom());
        if (failure != 0) return refuse(held, failure);
        if (!opened) return 0;
    }
}

/// Leaves the hunt pending unless the name has been opened in the meantime. Returns 0 or an errno value.
int Endpoint::keepHunt(const Name& name, const Held& held, bool& opened) {
    const ColdSection cold(*domain_);
    if (!cold.entered()) return errno;
    opened = findName(arena(), name) != 0;
    if (opened) return 0;
    park(held, spid_);
    const int failure = addHunt(arena(), cold.file(), spid_, name, held.ref);
    if (failure != ENOSPC) return failure;
    reapAllDead(cold);  // whose hunts nobody may have missed yet
    return addHunt(arena(), cold.file(), spid_, name, held.ref);
}

LinxRef Endpoint::attach(LinxSignal** notice, Spid spid) {
    if (find(*notice).block == nullptr) {
        errno = EINVAL;
        return 0;
    }
    Held held;
    takeOver(notice, 0, held);
    if (!everExisted(arena(), spid)) {
        refuse(held, ESRCH);
        return 0;
    }
    Peer* peer = nullptr;
    const bool ended = !isOpen(arena(), spid);
    if (!ended && spid != spid_) peer = peerFor(spid);
    if (peer == nullptr && spid != spid_ && !ended && errno != ECONNRESET) {
        refuse(held, errno);
        return 0;
    }
    if (peer != nullptr) {
        if (!supervise(*peer, held)) return 0;
    } else if (spid == spid_) {
        park(held, spid);
        ++held_;  // nobody learns of one's own end: the notice lies with the user's until then
    } else if (queueOwn(held, spid) == -1) {  // what it had sent comes before the news of its end
        return 0;
    }
    return ++lastReference_ != 0 ? lastReference_ : ++lastReference_;
}

/// False with errno ENOMEM, the notice freed.
bool Endpoint::supervise(Peer& peer, const Held& notice) {
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
