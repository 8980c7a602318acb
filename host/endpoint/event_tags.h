#ifndef LINXIPC_HOST_ENDPOINT_EVENT_TAGS_H
#define LINXIPC_HOST_ENDPOINT_EVENT_TAGS_H

#include <sys/epoll.h>

#include <cerrno>

#include "host/arena/spid.h"

namespace linx {

/// What an event of an endpoint's epoll set is about: a peer's doorbell, by the index of its slot, or one of these.
namespace event_tag {

constexpr uint32_t doorbell = numberOf(SlotIndex::none);
constexpr uint32_t timer = slotCount;

}  // namespace event_tag

/// Watches a descriptor for `events`, and for errors in any case. False with errno; ENFILE also when this user may
/// watch no more of them, which is as if the system had none left.
inline bool watch(int epoll, int descriptor, uint32_t events, uint32_t tag) {
    epoll_event event = {};
    event.events = events;
    event.data.u32 = tag;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0) return true;
    if (errno == ENOSPC) errno = ENFILE;
    return false;
}

}  // namespace linx

#endif
