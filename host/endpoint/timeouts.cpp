#include "host/endpoint/timeouts.h"

#include <cerrno>

#include "host/endpoint/event_tags.h"
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

void Timeouts::request(LinxRef reference, uint32_t milliseconds, Ref signal) {
    timers_.add(reference, now() + milliseconds * nanosecondsPerMillisecond, signal);
}

BlockRef Timeouts::cancel(LinxRef reference, SignalQueue& queue) {
    const Timers::Cancelled timeout = timers_.cancel(reference);
    const BlockRef block = arena_.blockAt(timeout.signal);
    const bool isKnown =
        timeout.signal != Ref::none && (!timeout.hadFired || queue.remove(timeout.signal, timeout.place));
    return isKnown ? block : BlockRef{};
}

void Timeouts::fire(uint64_t time, SignalQueue& queue) {
    timers_.called(time);
    for (Ref ref; (ref = timers_.due(time)) != Ref::none;) {
        const BlockRef block = arena_.blockAt(ref);
        if (!block) {
            timers_.takeAny();  // somebody has garbled what the block lies in
            continue;
        }
        // In this order: out of memory it has not fired.
        timers_.fire(queue.appendRemovable({ref, block.sizeClass}, block->signal.number));
    }
    timers_.arm();
}

}  // namespace linx
