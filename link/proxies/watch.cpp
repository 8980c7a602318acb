#include "link/proxies/watch.h"

#include <sys/epoll.h>

namespace linx::link {

Watch::Watch() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

bool Watch::add(const LocalEndpoint& endpoint, uint64_t number) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = number;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, endpoint.descriptor(), &event) == 0;
}

void Watch::remove(const LocalEndpoint& endpoint) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, endpoint.descriptor(), nullptr);
}

std::vector<uint64_t> Watch::readable() const {
    constexpr int most = 64;
    epoll_event events[most];
    const int count = epoll_wait(epoll_.get(), events, most, 0);
    std::vector<uint64_t> numbers;
    for (int i = 0; i < count; ++i) numbers.push_back(events[i].data.u64);
    return numbers;
}

}  // namespace linx::link
