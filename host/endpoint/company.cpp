// Whom an endpoint knows, how it learns of their ends, and what it still owes others.

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/answers.h"
#include "host/endpoint/endpoint.h"
#include "host/endpoint/event_tags.h"
#include "host/mailbox/broadcast.h"
#include "host/mailbox/doorbell.h"
#include "host/recovery/retire.h"

namespace linx {
namespace {

constexpr uint32_t longestDebtPause = 1000;  ///< milliseconds

}  // namespace

/// The open endpoint as a peer. Null with errno: ECONNRESET when its process has died. May bring signals to the
/// queue: what an earlier user of its slot leaves.
Peer* Endpoint::connect(Spid spid) {
    Peer* peer = peers_.find(spid);
    if (peer != nullptr && !doorbell::isDead(peer->doorbell.get())) return peer;
    if (!onPeerDeathIfRoom(indexOf(spid))) {
        errno = ENOMEM;
        return nullptr;
    }
    errno = ECONNRESET;
    if (peer != nullptr) return nullptr;
    try {
        peer = peers_.connect(spid);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    const int failure = errno;
    if (peer == nullptr && failure == ECONNRESET) {
        rememberDead(spid);
        reapDead(DomainLock::Patience::tryOnce);
    }
    errno = failure;
    return peer;
}

/// After a failure for want of descriptors: disconnects from a peer. True when there is one now. errno stays where
/// there is none.
bool Endpoint::makeRoom() {
    if (!peers_.makeRoom()) return false;
    // The one disconnected may have died since its last signal and have rung for none: now nothing tells of it any
    // more.
    updateReadiness();
    return true;
}

/// What somebody has written into the doorbell.
void Endpoint::readRecord(uint32_t record) {
    const Spid spid = record & spidMask;
    if (record == doorbell::ended) missedEnds_ = true;
    if (spid != record || spid == 0 || spid == spid_) return;
    watchSender(spid);
}

/// Watches a sender from now on. One that cannot be watched for want of descriptors or memory may still talk, and has
/// to introduce itself each time.
void Endpoint::watchSender(Spid sender) {
    if (!isOpen(arena(), sender) || peers_.find(sender) != nullptr) return;
    if (connect(sender) == nullptr && isOpen(arena(), sender)) introduction::revoke(slot());
}

bool Endpoint::hasEnded(const Peer& peer) const {
    // Acquire: (L), as in isOpen.
    return peer.slot.life.loadAcquire() != (peer.spid | lifeOpen) || doorbell::isDead(peer.doorbell.get());
}

/// The peer in this slot has ended: what it had sent, then the notices of its end. Takes no lock: whoever has it may
/// have been stopped. Out of memory, the peer stays as it is.
void Endpoint::onPeerDeath(uint32_t index) {
    Peer* peer = peers_.inSlot(index);
    if (peer == nullptr) return;
    takeMailbox();
    queue_.reserve(peer->notices.size());  // all or none: a notice must not be delivered twice
    for (const Ref notice : peer->notices) enqueue(notice);
    rememberDead(peer->spid);
    peers_.disconnect(index);
}

/// The same where nothing may be thrown. False when there is no memory for it.
bool Endpoint::onPeerDeathIfRoom(uint32_t index) {
    try {
        onPeerDeath(index);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Some peer has ended, of which its doorbell does not tell.
void Endpoint::findEndedPeers() {
    for (uint32_t index = 1; index < peers_.size(); ++index) {
        const Peer* peer = peers_.inSlot(index);
        if (peer != nullptr && !isOpen(arena(), peer->spid)) onPeerDeath(index);
    }
    missedEnds_ = false;
}

bool Endpoint::findEndedPeersIfRoom() {
    try {
        findEndedPeers();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Keeps in mind to reap an endpoint whose process has died. Without memory somebody else will have to.
void Endpoint::rememberDead(Spid dead) {
    if (!isOpen(arena(), dead) || std::find(dead_.begin(), dead_.end(), dead) != dead_.end()) return;
    try {
        dead_.push_back(dead);
    } catch (const std::bad_alloc&) {
    }
}

/// Ends all that were found dead, together. False with errno when the lock could not be had: then later.
bool Endpoint::reapDead(DomainLock::Patience patience) {
    if (dead_.empty()) return true;
    const DomainLock lock(*domain_, patience);
    if (!lock.isHeld()) return false;
    reap(lock, dead_.data(), dead_.size());
    dead_.clear();
    return true;
}

/// Ends one that was found dead. Needs no memory. False with errno when the lock could not be had.
bool Endpoint::reapNow(Spid dead) {
    const DomainLock lock(*domain_);
    if (!lock.isHeld()) return false;
    reap(lock, &dead, 1);
    return true;
}

/// Reaps those of whose death the kernel can tell, without delivering anything: for an allocation, whose memory they
/// may have. Whether there were any. errno stays.
bool Endpoint::reapKnownDead() {
    const int keptErrno = errno;
    constexpr int most = 64;
    epoll_event events[most];
    int count;
    size_t known;
    do {  // each look tells of others, until all have been told of
        known = dead_.size();
        count = epoll_wait(epoll_.get(), events, most, 0);
        for (int i = 0; i < count; ++i) {
            const Peer* peer = peers_.inSlot(events[i].data.u32);  // none is in the doorbell's or the timer's
            const bool mayBeDead = peer != nullptr && isOpen(arena(), peer->spid);
            if (mayBeDead && doorbell::isDead(peer->doorbell.get())) rememberDead(peer->spid);
        }
    } while (count == most && dead_.size() != known);
    const bool any = !dead_.empty() && reapDead(DomainLock::Patience::wait);
    errno = keptErrno;
    return any;
}

/// A ring that a peer asked for has failed, though the peer lives.
void Endpoint::oweRing() {
    owesRings_ = true;
    nextEntry_ = overdue;
}

void Endpoint::ringOwed() {
    owesRings_ = !ringSleepers(*domain_, indexOf(spid_));
    if (!owesRings_) nextEntry_ = forksSeen_;
}

/// Tries again what could not be done when it was due. While others wait for it, no receive sleeps for long; the rest
/// can wait: an endpoint that needs the name or the memory of the dead looks for them itself.
void Endpoint::doChores() {
    if (owesRings_) ringOwed();
    reapDead(DomainLock::Patience::tryOnce);
    if (owesAnswers_) {
        const DomainLock lock(*domain_, DomainLock::Patience::tryOnce);
        Name name;
        if (lock.isHeld() && nameOfSpid(arena(), spid_, name)) owesAnswers_ = !answerHunts(lock, spid_, name);
    }
    if (pool_.isUnderPressure()) pool_.yieldToPressure();
    debtPause_ = owesOthers() ? std::min(2 * debtPause_ + 1, longestDebtPause) : 0;
}

}  // namespace linx
