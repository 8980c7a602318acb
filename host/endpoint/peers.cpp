#include "host/endpoint/peers.h"

#include <sys/epoll.h>

#include <cerrno>

#include "host/mailbox/bell.h"

namespace linx {

Peers::~Peers() {
    for (uint32_t i = 0; i < peers_.size(); ++i) part(i);
}

Peer* Peers::meet(Spid spid) {
    ScopedDescriptor bell(openBell(spid));
    if (bell.get() == -1) {
        if (errno == ENXIO || errno == ENOENT) errno = ECONNRESET;
        return nullptr;
    }
    const uint32_t index = indexOf(spid);
    if (index >= peers_.size()) peers_.resize(index + 1);
    auto peer = std::make_unique<Peer>(spid, domain_.arena().slot(index), bell);
    epoll_event event = {};  // no events: errors are told always, and all that is waited for is the reader's end
    event.data.u32 = index;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, peer->bell.get(), &event) == -1) return nullptr;
    peers_[index] = std::move(peer);
    return peers_[index].get();
}

int Peers::openBell(Spid spid) {
    int bell = bell::open(domain_.directory(), spid);
    while (bell == -1 && makeRoom()) bell = bell::open(domain_.directory(), spid);
    return bell;
}

bool Peers::makeRoom() {
    const int failure = errno;
    if (failure != EMFILE && failure != ENFILE) return false;
    for (uint32_t i = 0; i < peers_.size(); ++i) {
        if (peers_[i] == nullptr || !peers_[i]->notices.empty()) continue;
        part(i);
        return true;
    }
    errno = failure;
    return false;
}

void Peers::supervise(Peer& peer, Ref notice) {
    peer.notices.push_back(notice);
    ++supervisions_;
}

void Peers::part(uint32_t index) {
    if (inSlot(index) == nullptr) return;
    supervisions_ -= peers_[index]->notices.size();
    forgetLatest();
    // Taken out by hand: closing is not enough where a forked child still has a copy of the descriptor.
    epoll_ctl(epoll_, EPOLL_CTL_DEL, peers_[index]->bell.get(), nullptr);
    peers_[index].reset();
}

Peer* Peers::lookUp(Spid spid) {
    Peer* peer = inSlot(indexOf(spid));
    if (peer == nullptr || peer->spid != spid) return nullptr;
    latestSpid_ = spid;
    latest_ = peer;
    return peer;
}

void Peers::forgetLatest() {
    latestSpid_ = 0;
    latest_ = nullptr;
}

Ref Peers::takeAnyNotice() {
    for (const auto& peer : peers_) {
        if (peer == nullptr || peer->notices.empty()) continue;
        const Ref notice = peer->notices.back();
        peer->notices.pop_back();
        --supervisions_;
        return notice;
    }
    return 0;
}

void Peers::abandon() {
    forgetLatest();
    peers_.clear();
}

}  // namespace linx
