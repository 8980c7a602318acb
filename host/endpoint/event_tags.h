#ifndef LINXIPC_HOST_ENDPOINT_EVENT_TAGS_H
#define LINXIPC_HOST_ENDPOINT_EVENT_TAGS_H

#include "host/arena/spid.h"

namespace linx {

/// What an event of an endpoint's epoll set is about: a peer's bell, by the index of its slot, or one of these.
namespace event_tag {

constexpr uint32_t bell = 0;
constexpr uint32_t timer = slotCount;

}  // namespace event_tag
}  // namespace linx

#endif
