#include "host/endpoint/timeouts.h"

#include <cerrno>

#include "host/endpoint/event_tags.h"
#include "host/record/kept.h"
#include "host/system/clock.h"

namespace linx {

bool Timeouts::watch() {
    if (timers_.descriptor() != -1) return true;
    if (timers_.open() == -1) return false;
    if (linx::watch(epoll_, timers_.descriptor(), EPOLLIN, event_tag::timer)) return true;
    const int failure = errno;
    timers_.close();  // the next one must try again to have it watched
    errno = failure;
    return false;
}

void Timeouts::request(LinxRef reference, uint32_t milliseconds, const BlockRef& signal) {
    const uint64_t deadline = now() + milliseconds * nanosecondsPerMillisecond;
    timers_.add(reference, deadline, signal.ref);
    tellKept(*signal, self_.spid, dueAt(deadline));
}

BlockRef Timeouts::cancel(LinxRef reference, SignalQueue& queue) {
    const Timers::Cancelled timeout = timers_.cancel(reference);
    const BlockRef block = self_.arena().blockAt(timeout.signal);
    if (!block || (timeout.hadFired && !queue.remove(timeout.signal, timeout.place))) return {};
    tellNotKept(*block);
    return block;
}

void Timeouts::fire(uint64_t time, SignalQueue& queue) {
    timers_.called(time);
    for (Ref ref; (ref = timers_.due(time)) != Ref::none;) {
        const BlockRef block = self_.arena().blockAt(ref);
        if (!block) {
            timers_.takeAny();  // somebody has garbled what the block lies in
            continue;
        }
        // In this order: out of memory it has not fired.
        timers_.fire(queue.appendRemovable({ref, block.sizeClass}, block->signal.number));
        tellNotKept(*block);
    }
    timers_.arm();
}

}  // namespace linx
