#include "host/endpoint/peers.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>

#include "host/endpoint/event_tags.h"
#include "host/mailbox/doorbell.h"

namespace linx {
namespace {

constexpr rlim_t largestReserve = 16;

}  // namespace

Peers::~Peers() {
    for (uint32_t i = 0; i < peers_.size(); ++i) disconnect(i);
}

Peer* Peers::connect(Spid spid) {
    ScopedDescriptor doorbell(openDoorbell(spid));
    if (doorbell.get() == -1) {
        if (errno == ENXIO || errno == ENOENT) errno = ECONNRESET;
        return nullptr;
    }
    leaveReserve(doorbell);
    const uint32_t index = indexOf(spid);
    if (index >= peers_.size()) peers_.resize(index + 1);
    auto peer = std::make_unique<Peer>(spid, domain_.arena().slot(index), doorbell);
    while (!watch(epoll_, peer->doorbell.get(), 0, index)) {  // no events: all that is waited for is the reader's end
        if (!makeRoom()) return nullptr;
    }
    peer->usedAt = ++uses_;
    peers_[index] = std::move(peer);
    return peers_[index].get();
}

int Peers::openDoorbell(Spid spid) {
    int doorbell = doorbell::open(domain_.directory(), spid);
    while (doorbell == -1 && makeRoom()) doorbell = doorbell::open(domain_.directory(), spid);
    return doorbell;
}

bool Peers::makeRoom() {
    const int failure = errno;
    if ((failure == EMFILE || failure == ENFILE) && disconnectOldest()) return true;
    errno = failure;
    return false;
}

/// Descriptors are given out the lowest first: the number of a new one tells how many are in use. When it is one of
/// the last, which the rest of the process is going to need, another peer goes for this one.
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
    forEach([&](const Peer& peer) {
        if (peer.notices.empty() && (oldest == nullptr || peer.usedAt < oldest->usedAt)) oldest = &peer;
    });
    if (oldest == nullptr) return false;
    introduction::revoke(own_);
    disconnect(indexOf(oldest->spid));
    return true;
}

void Peers::supervise(Peer& peer, Ref notice) {
    peer.notices.push_back(notice);
    ++supervisions_;
}

void Peers::disconnect(uint32_t index) {
    if (inSlot(index) == nullptr) return;
    supervisions_ -= peers_[index]->notices.size();
    forgetLatest();
    unrung_ = nullptr;
    // Taken out by hand: closing is not enough where a forked child still has a copy of the descriptor.
    epoll_ctl(epoll_, EPOLL_CTL_DEL, peers_[index]->doorbell.get(), nullptr);
    peers_[index].reset();
}

Peer* Peers::lookUp(Spid spid) {
    Peer* peer = inSlot(indexOf(spid));
    if (peer == nullptr || peer->spid != spid) return nullptr;
    // It is as old as the moment in which another becomes the latest.
    if (latest_ != nullptr) latest_->usedAt = ++uses_;
    peer->usedAt = ++uses_;
    latestSpid_ = spid;
    latest_ = peer;
    return peer;
}

void Peers::forgetLatest() {
    latestSpid_ = 0;
    latest_ = nullptr;
}

std::vector<Ref> Peers::takeNotices(uint32_t index) {
    if (inSlot(index) == nullptr) return {};
    std::vector<Ref> notices;
    notices.swap(peers_[index]->notices);
    supervisions_ -= notices.size();
    return notices;
}

void Peers::abandon() {
    forgetLatest();
    unrung_ = nullptr;
    peers_.clear();
}

}  // namespace linx
