#include "host/endpoint/peers.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "host/arena/slot_table.h"
#include "host/endpoint/event_tags.h"
#include "host/mailbox/doorbell.h"
#include "host/record/kept.h"
#include "host/recovery/retire.h"
#include "host/system/clock.h"

namespace linx {
namespace {

constexpr rlim_t largestReserve = 16;
constexpr uint64_t shortestPause = 10 * nanosecondsPerMillisecond;  ///< between two reapings by sends
constexpr uint64_t pauseFactor = 8;  ///< it is so many times as long as what was done before it

}  // namespace

Peers::~Peers() {
    for (uint32_t i = 0; i < peers_.size(); ++i) disconnect(SlotIndex{i});
    takeNotices([](Ref) {});  // one by one: a long chain must not take itself down by recursion
}

Peer* Peers::connect(Spid spid) {
    Peer* peer = find(spid);
    if (peer != nullptr && !doorbell::isDead(peer->doorbell.get())) return peer;
    end(indexOf(spid));  // this one, or an earlier user of its slot
    errno = ECONNRESET;
    if (peer != nullptr) return nullptr;
    try {
        peer = open(spid);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    const int failure = errno;
    if (peer == nullptr && failure == ECONNRESET) rememberDead(spid);
    errno = failure;
    return peer;
}

/// Makes `spid` a peer. REQUIRES an empty place at its index. Null with errno: ECONNRESET when its process is gone.
Peer* Peers::open(Spid spid) {
    ScopedDescriptor doorbell(openDoorbell(spid));
    if (doorbell.get() == -1) {
        if (errno == ENXIO || errno == ENOENT) errno = ECONNRESET;
        return nullptr;
    }
    leaveReserve(doorbell);
    const uint32_t index = numberOf(indexOf(spid));
    if (index >= peers_.size()) peers_.resize(index + 1);
    auto peer = std::make_unique<Peer>(spid, self_.arena().slot(indexOf(spid)), doorbell);
    while (!watch(epoll_, peer->doorbell.get(), 0, index)) {  // no events: all that is waited for is the reader's end
        if (!makeRoom()) return nullptr;
    }
    peer->usedAt = ++uses_;
    peers_[index] = std::move(peer);
    return peers_[index].get();
}

int Peers::openDoorbell(Spid spid) {
    int doorbell = doorbell::open(self_.domain.directory(), spid);
    while (doorbell == -1 && makeRoom()) doorbell = doorbell::open(self_.domain.directory(), spid);
    return doorbell;
}

bool Peers::makeRoom() {
    const int failure = errno;
    if ((failure == EMFILE || failure == ENFILE) && disconnectOldest()) return true;
    errno = failure;
    return false;
}

/// The kernel gives out the lowest free descriptor, so its number tells how many are in use. If it is one of the
/// last, which the rest of the process will need, another peer is disconnected for it.
void Peers::leaveReserve(ScopedDescriptor& doorbell) {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1 || limit.rlim_cur == RLIM_INFINITY) return;
    const rlim_t reserve = std::min<rlim_t>(limit.rlim_cur / 8, largestReserve);
    if (static_cast<rlim_t>(doorbell.get()) < limit.rlim_cur - reserve || !disconnectOldest()) return;
    const int lower = fcntl(doorbell.get(), F_DUPFD_CLOEXEC, 0);
    if (lower != -1) doorbell.reset(lower);
}

bool Peers::disconnectOldest() {
    const Peer* oldest = nullptr;
    for (const auto& peer : peers_) {
        if (peer == nullptr || !peer->notices.empty()) continue;
        if (oldest == nullptr || peer->usedAt < oldest->usedAt) oldest = peer.get();
    }
    if (oldest == nullptr) return false;
    introduction::revoke(self_.slot);
    disconnect(indexOf(oldest->spid));
    return true;
}

/// Takes a peer out of its slot; null if there is none.
std::unique_ptr<Peer> Peers::disconnect(SlotIndex index) {
    if (inSlot(index) == nullptr) return nullptr;
    mayHaveLeftMail_ = true;
    forgetLatest();
    std::unique_ptr<Peer> peer = std::move(peers_[numberOf(index)]);
    // Taken out by hand: closing is not enough where a forked child still has a copy of the descriptor.
    epoll_ctl(epoll_, EPOLL_CTL_DEL, peer->doorbell.get(), nullptr);
    peer->doorbell.reset();
    return peer;
}

Peer* Peers::lookUp(Spid spid) {
    Peer* peer = inSlot(indexOf(spid));
    if (peer == nullptr || peer->spid != spid) return nullptr;
    // The fast path does not stamp the latest peer: stamp it now.
    if (latest_ != nullptr) latest_->usedAt = ++uses_;
    peer->usedAt = ++uses_;
    latestSpid_ = spid;
    latest_ = peer;
    return peer;
}

void Peers::forgetLatest() {
    latestSpid_ = Spid::none;
    latest_ = nullptr;
}

void Peers::hear(const uint32_t* records, uint32_t count) {
    bool someEnded = false;
    for (uint32_t i = 0; i < count; ++i) {
        if (records[i] == doorbell::ended) someEnded = true;
        const Spid sender{records[i]};
        if (sender != self_.spid) watchSender(sender);
    }
    if (someEnded) findEnded();
    reapDead(DomainLock::Patience::tryOnce);  // those found dead before they could be watched
}

/// That may have been an end, or an introduction.
void Peers::missRecords() {
    introduction::revoke(self_.slot);
    findEnded();
}

/// Watches a sender if the record names one: most are rings, and introductions may be stale. A sender that cannot be
/// watched for lack of descriptors or memory may still send, but must introduce itself each time.
void Peers::watchSender(Spid sender) {
    // Never connect a stale spid: the slot's present user would count as ended.
    if (!isOpen(self_.arena(), sender) || find(sender) != nullptr) return;
    if (connect(sender) == nullptr && isOpen(self_.arena(), sender)) introduction::revoke(self_.slot);
}

void Peers::check(SlotIndex index) {
    const Peer* peer = inSlot(index);
    if (peer == nullptr) return;
    // Acquire [ended]: as in isOpen.
    const bool isOpen = peer->slot.life.loadAcquire() == openAs(peer->spid);
    if (!isOpen || doorbell::isDead(peer->doorbell.get())) end(index);
}

/// Finds ended peers whose doorbells do not tell.
void Peers::findEnded() {
    for (uint32_t i = 1; i < peers_.size(); ++i) {
        const Peer* peer = peers_[i].get();
        if (peer != nullptr && !isOpen(self_.arena(), peer->spid)) end(*peer);
    }
}

/// Takes no lock: whoever has it may have been stopped. Needs no memory.
void Peers::end(SlotIndex index) {
    std::unique_ptr<Peer> peer = disconnect(index);
    if (peer == nullptr) return;
    self_.record.peerDied(peer->spid);
    rememberDead(peer->spid);
    if (peer->notices.empty()) return;
    Peer* const last = peer.get();
    (hasEnded() ? lastEnded_->nextEnded : firstEnded_) = std::move(peer);
    lastEnded_ = last;
}

void Peers::supervise(Peer& peer, const BlockRef& notice) {
    peer.notices.push_back(notice.ref);
    tellKept(*notice, self_.spid, onItsSendersEnd);
    ++supervisions_;
}

void Peers::deliverNotices(SignalQueue& queue) {
    while (hasEnded()) {
        queue.reserve(firstEnded_->notices.size());  // all or none: a notice must not be delivered twice
        for (const Ref notice : firstEnded_->notices) {
            const BlockRef block = self_.arena().blockAt(notice);
            if (!block) continue;
            queue.append({notice, block.sizeClass}, block->signal.number);
            tellNotKept(*block);
        }
        supervisions_ -= firstEnded_->notices.size();
        firstEnded_ = std::move(firstEnded_->nextEnded);
    }
}

/// Notes a dead endpoint, to be reaped later. Out of memory, that is left to other endpoints.
void Peers::rememberDead(Spid dead) {
    if (!isOpen(self_.arena(), dead) || std::find(dead_.begin(), dead_.end(), dead) != dead_.end()) return;
    try {
        dead_.push_back(dead);
        owesReaping_ = true;
    } catch (const std::bad_alloc&) {
    }
}

bool Peers::reapDead(DomainLock::Patience patience) {
    if (dead_.empty()) return true;
    owesReaping_ = false;
    const DomainLock lock(self_.domain, patience);
    if (!lock.isHeld()) return false;
    linx::reap(lock, dead_.data(), dead_.size());
    dead_.clear();
    return true;
}

void Peers::reapDeadIfDue() {
    const uint64_t start = now();
    if (dead_.empty() || start < reapAgainAt_) return;
    reapDead(DomainLock::Patience::tryOnce);
    const uint64_t end = now();
    reapAgainAt_ = end + std::max(shortestPause, pauseFactor * (end - start));
}

bool Peers::reap(Spid dead) {
    const DomainLock lock(self_.domain);
    if (!lock.isHeld()) return false;
    reapAllDeadIfDue(lock);  // those who died with it: each of their names may be wanted next
    linx::reap(lock, &dead, 1);
    return true;
}

bool Peers::reapKnownDead() {
    const int keptErrno = errno;
    constexpr int most = 64;
    epoll_event events[most];
    int count;
    size_t known;
    do {  // each epoll_wait may report others
        known = dead_.size();
        count = epoll_wait(epoll_, events, most, 0);
        for (int i = 0; i < count; ++i) {
            const Peer* peer = inSlot(SlotIndex{events[i].data.u32});  // null for the doorbell and the timer
            const bool mayBeDead = peer != nullptr && isOpen(self_.arena(), peer->spid);
            if (mayBeDead && doorbell::isDead(peer->doorbell.get())) rememberDead(peer->spid);
        }
    } while (count == most && dead_.size() != known);
    const bool any = !dead_.empty() && reapDead(DomainLock::Patience::wait);
    errno = keptErrno;
    return any;
}

void Peers::abandon() {
    forgetLatest();
    peers_.clear();
}

}  // namespace linx
